#include "SorviKit/library/ShotScanner.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    // Exiv2 must be set up on the main thread before the location tests read HEIC files.
    ShotScanner::initializeMetadataReader();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
