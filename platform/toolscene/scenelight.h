// The light of a tool scene. One light object can be shared by the whole tool: the tool
// framework keeps it as the global object "ToolObjects/GlobalLight", and scenes that are given
// it shade with its values; a scene without one uses its own default light.
//
// Shading (see README.md): a directional light along the light's forward direction (from its
// angles), Lambert diffuse in the light's colour times its scale, an ambient term in the
// ambient colour times its scale (brighter on the side the ambient direction lights when it
// is not zero), and a Blinn-Phong highlight in the specular colour. Colours are sRGB, 0 to 1.
#pragma once

#include "core/mathtypes.h"

#define TOOLSCENE_GLOBAL_LIGHT_NAME "ToolObjects/GlobalLight"

class CToolSceneGlobalLight
{
public:
	Vector m_vPosition = Vector(-200.0f, 150.0f, 300.0f);
	QAngle m_Angles = QAngle(50.0f, -35.0f, 0.0f);
	Vector m_vColor = Vector(1.0f, 0.97f, 0.93f);
	float m_flScale = 1.0f;
	float m_flFOV = 15.0f;
	float m_flDistance = 250.0f;
	// Ambient light: colour, scale, and the direction it travels (zero: the same from everywhere).
	Vector m_vAmbientColor = Vector(0.35f, 0.38f, 0.42f);
	float m_flAmbientScale = 1.0f;
	Vector m_vAmbientDirection;
	// Kept for the callers that set it (the scene casts no shadows).
	Vector m_vShadowColor = Vector(0.35f, 0.35f, 0.35f);
	float m_flShadowScale = 1.0f;
	Vector m_vSpecularColor = Vector(0.25f, 0.25f, 0.25f);
	float m_flSpecularPower = 16.0f;

	// Sets the colours from bytes (the portrait record's "col" values).
	static Vector ColorFromBytes(const Color &color) { return Vector(color.r / 255.0f, color.g / 255.0f, color.b / 255.0f); }
	// Unlit: every surface shows its own colour (no diffuse or highlight, a plain white ambient).
	void SetUnlit();
};

// The tool framework's global light, or null when none is registered (or no framework runs).
CToolSceneGlobalLight *ToolScene_FindGlobalLight();
// Registers a light as the global object (null takes it away). False without a tool framework.
bool ToolScene_RegisterGlobalLight(CToolSceneGlobalLight *pLight);
