// The virtual display that drawing tests run under: an OpenGL 3.3 core context is made on it,
// and what is drawn reads back.
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFramebufferObject>
#include <QOpenGLFunctions>
#include <QGuiApplication>
#include <QImage>
#include <gtest/gtest.h>

TEST(VirtualDisplay, GivesAnOpenGLCoreContextThatDraws)
{
	EXPECT_EQ(QGuiApplication::platformName(), "xcb");
	ASSERT_FALSE(qgetenv("DISPLAY").isEmpty());

	QSurfaceFormat format;
	format.setVersion(3, 3);
	format.setProfile(QSurfaceFormat::CoreProfile);
	QOpenGLContext context;
	context.setFormat(format);
	ASSERT_TRUE(context.create());
	QOffscreenSurface surface;
	surface.setFormat(context.format());
	surface.create();
	ASSERT_TRUE(context.makeCurrent(&surface));
	EXPECT_GE(context.format().majorVersion() * 10 + context.format().minorVersion(), 33);

	QOpenGLFramebufferObject target(64, 32);
	ASSERT_TRUE(target.bind());
	QOpenGLFunctions *gl = context.functions();
	gl->glViewport(0, 0, 64, 32);
	gl->glClearColor(0.25f, 0.5f, 0.75f, 1.0f);
	gl->glClear(GL_COLOR_BUFFER_BIT);
	const QImage picture = target.toImage();
	ASSERT_EQ(picture.size(), QSize(64, 32));
	const QRgb pixel = picture.pixel(10, 10);
	EXPECT_NEAR(qRed(pixel), 64, 1);
	EXPECT_NEAR(qGreen(pixel), 128, 1);
	EXPECT_NEAR(qBlue(pixel), 191, 1);
	context.doneCurrent();
}
