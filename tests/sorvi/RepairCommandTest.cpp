#include "RepairClips.h"
#include "SorviProcess.h"

#include <filesystem>

using namespace RepairClips;

namespace {

class RepairCommandTest : public SorviProcessTest {};

} // namespace

TEST_F(RepairCommandTest, RepairAndJoinWriteNewFilesAndSayWhatWentWrong)
{
    if (!haveFfmpeg())
        GTEST_SKIP() << "ffmpeg and ffprobe are not installed; the repair tests make their clips with them";
    const std::string folder = temporaryFolder();
    const Profile profile = profiles().front();
    const std::string clip = make(profile, folder, 1.0);
    const std::string reference = folder + "/" + profile.name + "-reference" + profile.extension;
    const std::string cut = folder + "/cut.mp4", out = folder + "/out.mp4";
    damage(clip, cut, Damage::cutInMdat);

    CommandRun run = sorvi({"repair", QString::fromStdString(cut), "--reference", QString::fromStdString(reference),
                            "-o", QString::fromStdString(out)});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(run.out.contains("track 1 vide avc1:")) << run.out.toStdString();
    EXPECT_TRUE(run.out.contains("track 3 tmcd tmcd: 1 samples"));
    EXPECT_TRUE(std::filesystem::exists(out));

    run = sorvi({"repair", QString::fromStdString(cut)});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.err.contains("no reference given"));
    run = sorvi({"repair", QString::fromStdString(cut), "--reference", QString::fromStdString(reference), "-o",
                 QString::fromStdString(out)});
    EXPECT_EQ(run.exitCode, 1) << "an existing file was replaced";

    const std::vector<std::string> parts = split(clip, 2);
    run = sorvi({"join", QString::fromStdString(parts[0]), QString::fromStdString(parts[1])});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(run.out.contains("Joined 2 parts."));
    EXPECT_TRUE(std::filesystem::exists(folder + "/" + profile.name + "-part1-joined" + profile.extension));
    std::filesystem::remove_all(folder);
}
