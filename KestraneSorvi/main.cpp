#include "MainWindow.h"
#include "SorviKit/library/ShotScanner.h"
#include "SorviApp/model/SorviModel.h"

#include <QApplication>
#include <QFileInfo>
#include <QIcon>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Kestrane"));
    QApplication::setApplicationName(QStringLiteral("Sorvi"));
    QApplication::setApplicationDisplayName(QStringLiteral("Kestrane Sorvi"));
    QApplication::setDesktopFileName(QStringLiteral("app.kestrane.sorvi"));
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("app.kestrane.sorvi"),
                                                 QIcon(QStringLiteral(":/icons/app.kestrane.sorvi.svg"))));
    ShotScanner::initializeMetadataReader();

    SorviModel model;
    MainWindow window(model);
    window.show();

    // A folder (or a photo, meaning its folder) given on the command line opens at once.
    const QStringList args = app.arguments().mid(1);
    if (!args.isEmpty()) {
        const QFileInfo given(args.first());
        if (given.exists())
            model.open(given.isDir() ? given.absoluteFilePath() : given.absolutePath());
    }
    return app.exec();
}
