#pragma once

#include "SorviKit/ai/AIKeyStore.h"
#include "TestFiles.h"

#include <QSettings>

#include <gtest/gtest.h>

/// Tests that use the Secret Service run inside tests/AI/with-keyring.sh, which gives them
/// a private, unlocked keyring and private HOME and XDG folders; run directly, they skip.
/// Each test starts without stored keys or settings.
class KeyringTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (qEnvironmentVariable("SORVI_TEST_KEYRING") != QLatin1String("1"))
            GTEST_SKIP() << "needs a private keyring: run through tests/AI/with-keyring.sh (ctest does)";
        for (const AIProvider provider : AIProvider::allCases())
            ASSERT_EQ(AIKeyStore::setKey(std::nullopt, provider), std::nullopt);
        QSettings().clear();
        QSettings().sync();
    }

    /// Every file below the user's folders whose bytes contain `secret`.
    static QStringList filesContaining(const QByteArray &secret)
    {
        QStringList found;
        for (const char *variable : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME"}) {
            const QString folder = qEnvironmentVariable(variable);
            for (const QString &file : TestFiles::tree(folder))
                if (TestFiles::read(folder + QLatin1Char('/') + file).contains(secret))
                    found << folder + QLatin1Char('/') + file;
        }
        return found;
    }
};
