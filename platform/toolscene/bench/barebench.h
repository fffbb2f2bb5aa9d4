// Helpers of the benchmarks that measure a scene against a bare draw loop of the same triangles:
// a program from sources, matrices for GL, and the uniforms of the scene's model program for an
// unskinned draw with one colour texture on unit 0 and a plain light.
#pragma once

#include <QOpenGLFunctions_3_3_Core>

#include "toolscene/scenemath.h"
#include "toolscene/sceneshaders.h"

// Links a vertex and a fragment shader; 0 when either does not compile or they do not link.
inline GLuint BareBench_BuildProgram(QOpenGLFunctions_3_3_Core *gl, const char *pszVertex, const char *pszFragment)
{
	const char *sources[2] = { pszVertex, pszFragment };
	const GLenum types[2] = { GL_VERTEX_SHADER, GL_FRAGMENT_SHADER };
	const GLuint program = gl->glCreateProgram();
	for (int s = 0; s < 2; ++s)
	{
		const GLuint shader = gl->glCreateShader(types[s]);
		gl->glShaderSource(shader, 1, &sources[s], nullptr);
		gl->glCompileShader(shader);
		gl->glAttachShader(program, shader);
		gl->glDeleteShader(shader);
	}
	gl->glLinkProgram(program);
	GLint linked = 0;
	gl->glGetProgramiv(program, GL_LINK_STATUS, &linked);
	if (!linked)
	{
		gl->glDeleteProgram(program);
		return 0;
	}
	return program;
}

inline void BareBench_ColumnMajor(const SceneMatrix_t &m, float out[16])
{
	for (int c = 0; c < 4; ++c)
	{
		for (int r = 0; r < 4; ++r)
			out[c * 4 + r] = m.m[r][c];
	}
}

// The scene's model program (in use) set for unskinned draws: the colour texture on unit 0, the
// other samplers on units of their own, plain light values seen from `eye`.
inline void BareBench_SetShadingUniforms(QOpenGLFunctions_3_3_Core *gl, GLuint program, const Vector &eye)
{
	auto uniform = [&](const char *pszName) { return gl->glGetUniformLocation(program, pszName); };
	// Samplers of different kinds may not share a unit, or nothing is drawn.
	gl->glUniform1i(uniform("uColorTexture"), 0);
	gl->glUniform1i(uniform("uNormalTexture"), 1);
	gl->glUniform1i(uniform("uTranslucencyTexture"), 2);
	gl->glUniform1i(uniform("uBones"), 3);
	gl->glUniform1i(uniform("uFlags"), SHADER_FLAG_COLOR_TEXTURE);
	gl->glUniform1i(uniform("uSkinned"), 0);
	gl->glUniform4f(uniform("uColor"), 1.0f, 1.0f, 1.0f, 1.0f);
	gl->glUniform4f(uniform("uTint"), 1.0f, 1.0f, 1.0f, 0.0f);
	gl->glUniform3f(uniform("uEyePosition"), eye.x, eye.y, eye.z);
	gl->glUniform3f(uniform("uLightDirection"), -0.5f, 0.6f, -0.62f);
	gl->glUniform3f(uniform("uLightColor"), 1.0f, 0.95f, 0.9f);
	gl->glUniform3f(uniform("uAmbientColor"), 0.1f, 0.12f, 0.15f);
	gl->glUniform3f(uniform("uAmbientDirection"), 0.0f, 0.0f, 0.0f);
	gl->glUniform3f(uniform("uSpecularColor"), 0.05f, 0.05f, 0.05f);
	gl->glUniform1f(uniform("uSpecularPower"), 16.0f);
}
