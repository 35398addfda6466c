#pragma once

#include "SorviKit/ai/AIKeyStore.h"

#include <QByteArray>
#include <QDirIterator>
#include <QFile>
#include <QSettings>
#include <QStringList>

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

    /// The user folders a key must never be written to in plain text.
    static QStringList userFolders()
    {
        return {qEnvironmentVariable("HOME"), qEnvironmentVariable("XDG_CONFIG_HOME"),
                qEnvironmentVariable("XDG_DATA_HOME")};
    }

    /// Every file below the user folders whose bytes contain `secret`.
    static QStringList filesContaining(const QByteArray &secret)
    {
        QStringList found;
        for (const QString &folder : userFolders()) {
            QDirIterator files(folder, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
            while (files.hasNext()) {
                QFile file(files.next());
                if (file.open(QIODevice::ReadOnly) && file.readAll().contains(secret))
                    found << file.fileName();
            }
        }
        return found;
    }
};
