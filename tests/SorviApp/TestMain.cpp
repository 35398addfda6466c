#include "AppTestMain.h"

#include <QGuiApplication>

int main(int argc, char **argv)
{
    return runAppTests<QGuiApplication>(argc, argv);
}
