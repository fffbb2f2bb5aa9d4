// The portrait of a model: how the game frames it in the hero portrait or the item icon. One
// record per model element. It has a text form in item keys (KeyValues, under the item's
// `portraits`) and a KV3 form in session files, and the portrait editor works on it.
#pragma once

#include "core/mathtypes.h"
#include "core/utlstring.h"
#include "core/utlvector.h"

class KeyValues;
class KeyValues3;
class ImportMessageList;

class CZarnPortraitRecord
{
public:
	struct Camera_t
	{
		CUtlString m_Name;
		Vector m_Position;		   // PortraitPosition
		QAngle m_Angles;		   // PortraitAngles
		float m_flFOV = 15.0f;	   // PortraitFOV
		float m_flFar = 1000.0f;   // PortraitFar
		float m_flShadowFarZ = 0.0f; // PortraitShadowFarZ, written only when not 0
	};
	struct Summon_t
	{
		CUtlString m_Unit;
		Vector m_Position;
		QAngle m_Angles;
		float m_flScale = 1.0f;
	};

	CZarnPortraitRecord();

	// The camera of that name; null when absent.
	Camera_t *FindCamera(const char *pszName);
	const Camera_t *FindCamera(const char *pszName) const;
	// The camera of that name, or the first when absent (a record always has "default").
	Camera_t &CameraOrFirst(const char *pszName);
	const Camera_t &CameraOrFirst(const char *pszName) const;
	// The camera of that name, added at the end when absent.
	Camera_t &AddCamera(const char *pszName);

	// Text form: every field, in the order of the game's item keys, into `pKeys`.
	void WriteKeys(KeyValues *pKeys) const;
	// Reads the text form; a missing key takes the field's default.
	void ReadKeys(KeyValues *pKeys);

	// Session form: the members a session keeps (the light block, the background colours, the
	// strings, cycle and rate, the cameras).
	void WriteSession(KeyValues3 *pTable) const;
	// Reads the session form. A table with members that lacks a vector, angle or colour member
	// reports "#ZARN_Mintyard_Err_Misc" with the member's name, and that field keeps its value; an
	// empty table (no portrait edited yet) changes nothing.
	void ReadSession(const KeyValues3 *pTable, ImportMessageList &list);

	// Light block.
	Vector m_LightPosition;
	QAngle m_LightAngles;
	float m_flLightFOV = 15.0f;
	float m_flLightDistance = 250.0f;
	Color m_LightColor = Color(243, 237, 230);
	float m_flLightScale = 1.0f;
	Color m_ShadowColor = Color(89, 89, 89);
	float m_flShadowScale = 1.5f;
	float m_flGroundShadowScale = 1.5f;
	Vector m_AmbientDirection = Vector(400.0f, -400.0f, -50.0f);
	Color m_AmbientColor = Color(123, 168, 168);
	float m_flAmbientScale = 2.5f;
	Color m_SpecularColor = Color(251, 74, 84);
	Vector m_SpecularDirection = Vector(0.0f, 0.0f, -1.0f);
	float m_flSpecularPower = 16.0f;

	CUtlVector<Camera_t> m_Cameras;

	// Scene and animation block.
	Vector m_BackgroundColor[4]; // 0 to 1
	CUtlString m_BackgroundTexture;
	CUtlString m_Particle;
	CUtlString m_BackgroundModel;
	CUtlString m_BackgroundMap;
	CUtlString m_AnimationActivity;
	CUtlString m_AnimationSequence;
	float m_flAnimationCycle = 0.0f;
	float m_flAnimationRate = 1.0f;
	bool m_bPlayIdleExpression = false;
	bool m_bHideHero = false;
	bool m_bHideParticles = false;
	bool m_bHideDropShadow = false;
	bool m_bDesaturateParticles = false;
	bool m_bDesaturateHero = false;
	bool m_bVignetteItem = false;
	float m_flEffigyCameraOffset = 20.0f;
	float m_flEffigyGroundOffset = -23.0f;
	float m_flEffigyBaseOffset = -2.0f;
	float m_flEffigyZoomOut = 1.7f;

	// Summons block.
	Vector m_SummonPosition;
	QAngle m_SummonAngles;
	float m_flSummonScale = 1.0f;
	CUtlVector<Summon_t> m_Summons;
};
