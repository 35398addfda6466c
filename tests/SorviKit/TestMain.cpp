#include "SorviKit/library/ShotScanner.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    // Dates without an offset are read in the computer's zone; pin it so that results
    // don't depend on where the tests run.
    qputenv("TZ", "Europe/Helsinki");
    QCoreApplication app(argc, argv);
    ShotScanner::initializeMetadataReader();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
