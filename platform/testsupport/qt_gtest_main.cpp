// The main of widget tests: a QApplication on the offscreen platform unless the environment
// names another (tests that draw with OpenGL run under Xvfb with "xcb").
#include <cstdlib>

#include <QApplication>
#include <gtest/gtest.h>

int main(int argc, char **argv)
{
	setenv("QT_QPA_PLATFORM", "offscreen", 0);
	testing::InitGoogleTest(&argc, argv);
	QApplication app(argc, argv);
	return RUN_ALL_TESTS();
}
