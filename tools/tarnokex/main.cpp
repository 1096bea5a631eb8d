// The desktop program.
#include "mainwindow.hpp"

#include <QApplication>

int main(int argc, char** argv)
{
    QApplication application(argc, argv);
    TARNOK::MainWindow window;
    window.show();
    return application.exec();
}
