#pragma once

#include "SorviKit/library/ShotScanner.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

/// The main of the test programs that drive the model and the windows: an `Application`
/// (QGuiApplication or QApplication) on the offscreen platform unless another is asked
/// for, the application's names, and catalogs, check results and user defaults in a
/// folder of this run, never the real user's.
template <typename Application>
int runAppTests(int argc, char **argv)
{
    // Dates without an offset are read in the computer's zone; pin it so that results
    // don't depend on where the tests run.
    qputenv("TZ", "Europe/Helsinki");
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // The variables must be set before the application reads them.
    QTemporaryDir home;
    if (!home.isValid())
        return 1;
    qputenv("XDG_DATA_HOME", QFile::encodeName(home.filePath(QStringLiteral("data"))));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath(QStringLiteral("config"))));
    Application app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Kestrane"));
    QCoreApplication::setApplicationName(QStringLiteral("Sorvi"));
    ShotScanner::initializeMetadataReader();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
