// The main of every test executable: GoogleTest on top of a Qt application object, so Qt classes
// that need one (QSerialPort's notifiers, widgets) work as in the product. Widget tests build this
// file with VARIMO_TEST_GUI and get a QApplication (on the offscreen platform under ctest).

#include <gtest/gtest.h>

#ifdef VARIMO_TEST_GUI
#include <QApplication>
using TestApplication = QApplication;
#else
#include <QCoreApplication>
using TestApplication = QCoreApplication;
#endif

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    TestApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
