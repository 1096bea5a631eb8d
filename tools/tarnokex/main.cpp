// SPDX-License-Identifier: MIT
// The desktop program.
#include "../standard_streams.hpp"

#include "mainwindow.hpp"

#include <QApplication>

int main(int argc, char** argv)
{
    openMissingStandardStreams();
    QApplication application(argc, argv);
    TARNOK::MainWindow window;
    window.show();
    return application.exec();
}
