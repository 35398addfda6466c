#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <gtest/gtest.h>

/// What one run of the `sorvi` program said.
struct CommandRun {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

/// Runs the real `sorvi` program with a data folder of its own, so catalogs written by
/// one test never reach another or the user's own.
class SorviProcessTest : public ::testing::Test {
protected:
    CommandRun sorvi(const QStringList &args)
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("XDG_DATA_HOME", m_data.path());
        environment.insert("TZ", "UTC");
        process.setProcessEnvironment(environment);
        process.start(SORVI_EXECUTABLE, args);
        // Checks built with the sanitizers take minutes on a busy two-core machine; a run
        // cut short would read as a wrong answer rather than as slowness.
        process.waitForFinished(600000);
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                process.readAllStandardOutput(), process.readAllStandardError()};
    }
    QString dataPath() const { return m_data.path(); }

private:
    QTemporaryDir m_data;
};
