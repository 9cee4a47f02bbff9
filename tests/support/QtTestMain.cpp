// Entry point of the widget test programs: GoogleTest inside a QApplication.

#include <gtest/gtest.h>

#include <QApplication>
#include <QCoreApplication>

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  // ctest sets the offscreen platform; the test listing made while building runs without it and
  // without a display, so it falls back to offscreen too.
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  // Preferences of the program's own, beside it: what a test stores never reaches the user's
  // settings or another test program.
  qputenv("XDG_CONFIG_HOME", (QCoreApplication::applicationFilePath() + "-config").toLocal8Bit());
  return RUN_ALL_TESTS();
}
