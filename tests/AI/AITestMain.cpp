#include <QGuiApplication>
#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    // The network and the keyring answer through the event loop, and the test pictures
    // are drawn with QPainter; no display is needed, not even to list the tests.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    QCoreApplication::setOrganizationName("Kestrane");
    QCoreApplication::setApplicationName("Sorvi");
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
