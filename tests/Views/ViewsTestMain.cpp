#include "AppTestMain.h"

#include <QApplication>

int main(int argc, char **argv)
{
    return runAppTests<QApplication>(argc, argv);
}
