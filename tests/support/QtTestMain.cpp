// Entry point of the widget test programs: GoogleTest inside a QApplication.

#include <gtest/gtest.h>

#include <QApplication>

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  // ctest sets the offscreen platform; the test listing made while building runs without it and
  // without a display, so it falls back to offscreen too.
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  return RUN_ALL_TESTS();
}
