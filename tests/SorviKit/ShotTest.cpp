#include "SorviKit/core/Rating.h"
#include "SorviKit/library/Shot.h"

#include <gtest/gtest.h>

TEST(ShotTest, DerivedPropertiesFollowTheFiles)
{
    const Shot rawOnly("DCIM/IMG_1", {"/card/DCIM/IMG_1.CR3"});
    EXPECT_EQ(rawOnly.raw(), "/card/DCIM/IMG_1.CR3");
    EXPECT_FALSE(rawOnly.rendered());
    EXPECT_EQ(rawOnly.displayFile(), "/card/DCIM/IMG_1.CR3");
    EXPECT_FALSE(rawOnly.isPair());
    EXPECT_EQ(rawOnly.kinds(), "CR3");
    EXPECT_EQ(rawOnly.name(), "IMG_1");

    const Shot pair("day2/DSC_0042", {"/s/day2/DSC_0042.NEF", "/s/day2/DSC_0042.JPG"});
    EXPECT_EQ(pair.raw(), "/s/day2/DSC_0042.NEF");
    EXPECT_EQ(pair.displayFile(), "/s/day2/DSC_0042.JPG");
    EXPECT_TRUE(pair.isPair());
    EXPECT_EQ(pair.kinds(), "NEF + JPG");
    EXPECT_EQ(pair.name(), "DSC_0042");

    const Shot png("a", {"/s/a.png"});
    EXPECT_EQ(png.rendered(), "/s/a.png");
    EXPECT_FALSE(png.raw());

    const Shot mixedCase("IMG_1", {"/s/IMG_1.Jpeg"});
    EXPECT_TRUE(mixedCase.rendered());
    EXPECT_EQ(mixedCase.kinds(), "JPEG");

    Shot detailed = pair;
    detailed.width = 3008;
    EXPECT_NE(detailed, pair);
}

TEST(RatingTest, EmptinessAndRawValuesRoundTrip)
{
    EXPECT_TRUE(Rating().isEmpty());
    EXPECT_FALSE((Rating{0, Rating::Flag::none, Rating::Label::purple}.isEmpty()));
    EXPECT_FALSE((Rating{1, Rating::Flag::none, Rating::Label::none}.isEmpty()));
    EXPECT_FALSE((Rating{0, Rating::Flag::reject, Rating::Label::none}.isEmpty()));

    for (const Rating::Label label : Rating::allLabels)
        EXPECT_EQ(Rating::labelFromRaw(Rating::rawValue(label)), label);
    EXPECT_EQ(Rating::rawValue(Rating::Label::none), "");
    EXPECT_EQ(Rating::rawValue(Rating::Label::red), "Red");
    EXPECT_FALSE(Rating::labelFromRaw("red"));
    EXPECT_FALSE(Rating::labelFromRaw("none"));
    EXPECT_EQ(Rating::flagFromRaw("reject"), Rating::Flag::reject);
    EXPECT_FALSE(Rating::flagFromRaw("maybe"));
    EXPECT_FALSE(Rating::flagFromRaw("Pick"));
}
