#include "mintyardtoolutils/core/portraitrecord.h"

#include <cstdio>

#include "core/keyvalues.h"
#include "core/keyvalues3.h"
#include "core/strtools.h"
#include "mintyardtoolutils/core/importmessages.h"

namespace
{
const char *const kDefaultCamera = "default";

CUtlString VecText(const float *v) { return V_Format("%f %f %f", v[0], v[1], v[2]); }
CUtlString ColorText(const Color &c) { return V_Format("%d %d %d", c.r, c.g, c.b); }

// Three numbers of a text; what is missing stays 0.
void ParseThree(const char *pszText, float *out)
{
	out[0] = out[1] = out[2] = 0.0f;
	if (pszText)
		sscanf(pszText, "%f %f %f", &out[0], &out[1], &out[2]);
}

void ReadVec(KeyValues *pKeys, const char *pszKey, float *out, const char *pszDefault)
{
	const KeyValues *pKey = pKeys->FindKey(pszKey);
	ParseThree(pKey ? pKeys->GetString(pszKey) : pszDefault, out);
}

Color ReadColor(KeyValues *pKeys, const char *pszKey, const char *pszDefault)
{
	int rgb[3] = { 0, 0, 0 };
	sscanf(pKeys->FindKey(pszKey) ? pKeys->GetString(pszKey) : pszDefault, "%d %d %d", &rgb[0], &rgb[1], &rgb[2]);
	auto Clamp = [](int v) { return (uint8)(v < 0 ? 0 : v > 255 ? 255 : v); };
	return Color(Clamp(rgb[0]), Clamp(rgb[1]), Clamp(rgb[2]), 255);
}

bool IsZero(const float *v)
{
	return v[0] == 0.0f && v[1] == 0.0f && v[2] == 0.0f;
}

// Session form.
void WriteFloats3(KeyValues3 *pTable, const char *pszName, const float *v)
{
	SetFloats(AddMember(pTable, pszName), 3, v);
}

void WriteColorArray(KeyValues3 *pTable, const char *pszName, const Color &c)
{
	KeyValues3 *pArray = AddMember(pTable, pszName);
	pArray->MakeArray(3);
	pArray->GetArrayElement(0)->SetInt32(c.r);
	pArray->GetArrayElement(1)->SetInt32(c.g);
	pArray->GetArrayElement(2)->SetInt32(c.b);
}

// A member that must be an array of three numbers; false when it is absent or no such array.
bool ReadFloats3(const KeyValues3 *pTable, const char *pszName, float *out)
{
	const KeyValues3 *pValue = FindMember(pTable, pszName);
	if (!pValue || !pValue->IsArray() || pValue->GetArrayCount() < 3)
		return false;
	for (uint32 i = 0; i < 3; ++i)
	{
		if (!pValue->GetArrayElement(i)->IsNumber())
			return false;
	}
	ReadFloats(pValue, 3, out);
	return true;
}

bool ReadColorArray(const KeyValues3 *pTable, const char *pszName, Color &out)
{
	float rgb[3];
	if (!ReadFloats3(pTable, pszName, rgb))
		return false;
	auto Clamp = [](float v) { return (uint8)(v < 0.0f ? 0 : v > 255.0f ? 255 : (int)(v + 0.5f)); };
	out = Color(Clamp(rgb[0]), Clamp(rgb[1]), Clamp(rgb[2]), 255);
	return true;
}

void ReadFloatMember(const KeyValues3 *pTable, const char *pszName, float &out)
{
	const KeyValues3 *pValue = FindMember(pTable, pszName);
	if (pValue && pValue->IsNumber())
		ReadFloats(pValue, 1, &out);
}

void ReadStringMember(const KeyValues3 *pTable, const char *pszName, CUtlString &out)
{
	const KeyValues3 *pValue = FindMember(pTable, pszName);
	if (pValue && pValue->IsString())
		out = pValue->GetString();
}

const char *const kBackgroundColorKeys[4] = { "PortraitBackgroundColor1", "PortraitBackgroundColor2", "PortraitBackgroundColor3",
	"PortraitBackgroundColor4" };

// The subkey of that exact name (any case), added when missing. A camera's name is a name, never
// a path: FindKey would take "a/b" as two levels.
KeyValues *FindOrAddChild(KeyValues *pParent, const char *pszName)
{
	for (KeyValues *pChild = pParent->GetFirstSubKey(); pChild; pChild = pChild->GetNextKey())
	{
		if (V_stricmp(pChild->GetName(), pszName) == 0)
			return pChild;
	}
	return pParent->AddKey(pszName);
}
} // namespace

CZarnPortraitRecord::CZarnPortraitRecord()
{
	for (Vector &color : m_BackgroundColor)
		color = Vector(1.0f, 1.0f, 1.0f);
	AddCamera(kDefaultCamera);
}

CZarnPortraitRecord::Camera_t *CZarnPortraitRecord::FindCamera(const char *pszName)
{
	for (Camera_t &camera : m_Cameras)
	{
		if (pszName && V_StrEqualNoCase(camera.m_Name, pszName))
			return &camera;
	}
	return nullptr;
}

const CZarnPortraitRecord::Camera_t *CZarnPortraitRecord::FindCamera(const char *pszName) const
{
	return const_cast<CZarnPortraitRecord *>(this)->FindCamera(pszName);
}

CZarnPortraitRecord::Camera_t &CZarnPortraitRecord::CameraOrFirst(const char *pszName)
{
	if (Camera_t *camera = FindCamera(pszName))
		return *camera;
	if (m_Cameras.empty())
		AddCamera(kDefaultCamera);
	return m_Cameras[0];
}

const CZarnPortraitRecord::Camera_t &CZarnPortraitRecord::CameraOrFirst(const char *pszName) const
{
	return const_cast<CZarnPortraitRecord *>(this)->CameraOrFirst(pszName);
}

CZarnPortraitRecord::Camera_t &CZarnPortraitRecord::AddCamera(const char *pszName)
{
	if (Camera_t *camera = FindCamera(pszName))
		return *camera;
	m_Cameras.emplace_back();
	m_Cameras.back().m_Name = pszName ? pszName : "";
	return m_Cameras.back();
}

// ---------------------------------------------------------------------------------------------
// Text form

void CZarnPortraitRecord::WriteKeys(KeyValues *pKeys) const
{
	if (!pKeys)
		return;
	KeyValues *pCameras = pKeys->FindKey("cameras", true);
	for (const Camera_t &camera : m_Cameras)
	{
		KeyValues *pCamera = FindOrAddChild(pCameras, camera.m_Name.c_str());
		pCamera->SetString("PortraitPosition", VecText(camera.m_Position.Base()).c_str());
		pCamera->SetString("PortraitAngles", VecText(camera.m_Angles.Base()).c_str());
		pCamera->SetFloat("PortraitFOV", camera.m_flFOV);
		pCamera->SetFloat("PortraitFar", camera.m_flFar);
		if (camera.m_flShadowFarZ != 0.0f)
			pCamera->SetFloat("PortraitShadowFarZ", camera.m_flShadowFarZ);
	}

	pKeys->SetString("PortraitLightPosition", VecText(m_LightPosition.Base()).c_str());
	pKeys->SetString("PortraitLightAngles", VecText(m_LightAngles.Base()).c_str());
	pKeys->SetFloat("PortraitLightFOV", m_flLightFOV);
	pKeys->SetFloat("PortraitLightDistance", m_flLightDistance);
	pKeys->SetString("PortraitLightColor", ColorText(m_LightColor).c_str());
	pKeys->SetFloat("PortraitLightScale", m_flLightScale);
	pKeys->SetString("PortraitShadowColor", ColorText(m_ShadowColor).c_str());
	pKeys->SetFloat("PortraitShadowScale", m_flShadowScale);
	pKeys->SetFloat("PortraitGroundShadowScale", m_flGroundShadowScale);
	pKeys->SetString("PortraitAmbientDirection",
		V_Format("%.3f %.3f %.3f", m_AmbientDirection.x, m_AmbientDirection.y, m_AmbientDirection.z).c_str());
	pKeys->SetString("PortraitAmbientColor", ColorText(m_AmbientColor).c_str());
	pKeys->SetFloat("PortraitAmbientScale", m_flAmbientScale);
	pKeys->SetString("PortraitSpecularColor", ColorText(m_SpecularColor).c_str());
	pKeys->SetString("PortraitSpecularDirection", VecText(m_SpecularDirection.Base()).c_str());
	pKeys->SetFloat("PortraitSpecularPower", m_flSpecularPower);

	if (!IsZero(m_SummonPosition.Base()) || pKeys->FindKey("SummonPosition"))
		pKeys->SetString("SummonPosition", VecText(m_SummonPosition.Base()).c_str());
	if (!IsZero(m_SummonAngles.Base()) || pKeys->FindKey("SummonAngles"))
		pKeys->SetString("SummonAngles", VecText(m_SummonAngles.Base()).c_str());
	if (m_flSummonScale != 1.0f || pKeys->FindKey("SummonScale"))
		pKeys->SetFloat("SummonScale", m_flSummonScale);
	pKeys->FindAndDeleteSubKey("summons");
	if (!m_Summons.empty())
	{
		KeyValues *pSummons = pKeys->FindKey("summons", true);
		for (const Summon_t &summon : m_Summons)
		{
			KeyValues *pUnit = pSummons->AddKey(summon.m_Unit.c_str());
			pUnit->SetString("Position", VecText(summon.m_Position.Base()).c_str());
			pUnit->SetString("Angles", VecText(summon.m_Angles.Base()).c_str());
			pUnit->SetFloat("Scale", summon.m_flScale);
		}
	}

	for (int i = 0; i < 4; ++i)
		pKeys->SetString(kBackgroundColorKeys[i], VecText(m_BackgroundColor[i].Base()).c_str());
	pKeys->SetString("PortraitBackgroundTexture", m_BackgroundTexture.c_str());
	pKeys->SetString("PortraitParticle", m_Particle.c_str());
	pKeys->SetString("PortraitBackgroundModel", m_BackgroundModel.c_str());
	pKeys->SetString("PortraitBackgroundMap", m_BackgroundMap.c_str());
	pKeys->SetString("PortraitAnimationActivity", m_AnimationActivity.c_str());
	pKeys->SetString("PortraitAnimationSequence", m_AnimationSequence.c_str());
	pKeys->SetFloat("PortraitAnimationCycle", m_flAnimationCycle);
	pKeys->SetFloat("PortraitAnimationRate", m_flAnimationRate);
	pKeys->SetInt("PortraitPlayIdleExpression", m_bPlayIdleExpression);
	pKeys->SetInt("PortraitHideHero", m_bHideHero);
	pKeys->SetInt("PortraitHideParticles", m_bHideParticles);
	pKeys->SetInt("PortraitHideDropShadow", m_bHideDropShadow);
	pKeys->SetInt("PortraitDesaturateParticles", m_bDesaturateParticles);
	pKeys->SetInt("PortraitDesaturateHero", m_bDesaturateHero);
	pKeys->SetInt("PortraitVignetteItem", m_bVignetteItem);
	if (m_flEffigyCameraOffset != 20.0f)
		pKeys->SetFloat("EffigyCameraOffset", m_flEffigyCameraOffset);
	if (m_flEffigyGroundOffset != -23.0f)
		pKeys->SetFloat("EffigyGroundOffset", m_flEffigyGroundOffset);
	if (m_flEffigyBaseOffset != -2.0f)
		pKeys->SetFloat("EffigyBaseOffset", m_flEffigyBaseOffset);
	if (m_flEffigyZoomOut != 1.7f)
		pKeys->SetFloat("EffigyZoomOut", m_flEffigyZoomOut);
}

void CZarnPortraitRecord::ReadKeys(KeyValues *pKeys)
{
	if (!pKeys)
		return;
	m_Cameras.clear();
	if (KeyValues *pCameras = pKeys->FindKey("cameras"))
	{
		for (KeyValues *pCamera = pCameras->GetFirstTrueSubKey(); pCamera; pCamera = pCamera->GetNextTrueSubKey())
		{
			Camera_t &camera = AddCamera(pCamera->GetName());
			ReadVec(pCamera, "PortraitPosition", camera.m_Position.Base(), "0 0 0");
			ReadVec(pCamera, "PortraitAngles", camera.m_Angles.Base(), "0 0 0");
			camera.m_flFOV = pCamera->GetFloat("PortraitFOV", 15.0f);
			camera.m_flFar = pCamera->GetFloat("PortraitFar", 1000.0f);
			camera.m_flShadowFarZ = pCamera->GetFloat("PortraitShadowFarZ", 0.0f);
		}
	}
	if (!FindCamera(kDefaultCamera))
	{
		Camera_t camera;
		camera.m_Name = kDefaultCamera;
		m_Cameras.insert(m_Cameras.begin(), camera);
	}

	ReadVec(pKeys, "PortraitLightPosition", m_LightPosition.Base(), "0 0 0");
	ReadVec(pKeys, "PortraitLightAngles", m_LightAngles.Base(), "0 0 0");
	m_flLightFOV = pKeys->GetFloat("PortraitLightFOV", 15.0f);
	m_flLightDistance = pKeys->GetFloat("PortraitLightDistance", 250.0f);
	m_LightColor = ReadColor(pKeys, "PortraitLightColor", "243 237 230");
	m_flLightScale = pKeys->GetFloat("PortraitLightScale", 1.0f);
	m_ShadowColor = ReadColor(pKeys, "PortraitShadowColor", "89 89 89");
	m_flShadowScale = pKeys->GetFloat("PortraitShadowScale", 1.5f);
	m_flGroundShadowScale = pKeys->GetFloat("PortraitGroundShadowScale", 1.5f);
	ReadVec(pKeys, "PortraitAmbientDirection", m_AmbientDirection.Base(), "400.0 -400.0 -50.0");
	m_AmbientColor = ReadColor(pKeys, "PortraitAmbientColor", "123 168 168");
	m_flAmbientScale = pKeys->GetFloat("PortraitAmbientScale", 2.5f);
	m_SpecularColor = ReadColor(pKeys, "PortraitSpecularColor", "251 74 84");
	ReadVec(pKeys, "PortraitSpecularDirection", m_SpecularDirection.Base(), "0.0 0.0 -1.0");
	m_flSpecularPower = pKeys->GetFloat("PortraitSpecularPower", 16.0f);

	for (int i = 0; i < 4; ++i)
		ReadVec(pKeys, kBackgroundColorKeys[i], m_BackgroundColor[i].Base(), "1.0 1.0 1.0");
	m_BackgroundTexture = pKeys->GetString("PortraitBackgroundTexture");
	m_Particle = pKeys->GetString("PortraitParticle");
	m_BackgroundModel = pKeys->GetString("PortraitBackgroundModel");
	m_BackgroundMap = pKeys->GetString("PortraitBackgroundMap");
	m_AnimationActivity = pKeys->GetString("PortraitAnimationActivity");
	m_AnimationSequence = pKeys->GetString("PortraitAnimationSequence");
	m_flAnimationCycle = pKeys->GetFloat("PortraitAnimationCycle", 0.0f);
	m_flAnimationRate = pKeys->GetFloat("PortraitAnimationRate", 1.0f);
	m_bPlayIdleExpression = pKeys->GetInt("PortraitPlayIdleExpression") != 0;
	m_bHideHero = pKeys->GetInt("PortraitHideHero") != 0;
	m_bHideParticles = pKeys->GetInt("PortraitHideParticles") != 0;
	m_bHideDropShadow = pKeys->GetInt("PortraitHideDropShadow") != 0;
	m_bDesaturateParticles = pKeys->GetInt("PortraitDesaturateParticles") != 0;
	m_bDesaturateHero = pKeys->GetInt("PortraitDesaturateHero") != 0;
	m_bVignetteItem = pKeys->GetInt("PortraitVignetteItem") != 0;
	m_flEffigyCameraOffset = pKeys->GetFloat("EffigyCameraOffset", 20.0f);
	m_flEffigyGroundOffset = pKeys->GetFloat("EffigyGroundOffset", -23.0f);
	m_flEffigyBaseOffset = pKeys->GetFloat("EffigyBaseOffset", -2.0f);
	m_flEffigyZoomOut = pKeys->GetFloat("EffigyZoomOut", 1.7f);

	ReadVec(pKeys, "SummonPosition", m_SummonPosition.Base(), "0.0 0.0 0.0");
	ReadVec(pKeys, "SummonAngles", m_SummonAngles.Base(), "0.0 0.0 0.0");
	m_flSummonScale = pKeys->GetFloat("SummonScale", 1.0f);
	m_Summons.clear();
	if (KeyValues *pSummons = pKeys->FindKey("summons"))
	{
		for (KeyValues *pUnit = pSummons->GetFirstTrueSubKey(); pUnit; pUnit = pUnit->GetNextTrueSubKey())
		{
			Summon_t summon;
			summon.m_Unit = pUnit->GetName();
			ReadVec(pUnit, "Position", summon.m_Position.Base(), "0 0 0");
			ReadVec(pUnit, "Angles", summon.m_Angles.Base(), "0 0 0");
			summon.m_flScale = pUnit->GetFloat("Scale", 1.0f);
			m_Summons.push_back(summon);
		}
	}
}

// ---------------------------------------------------------------------------------------------
// Session form

void CZarnPortraitRecord::WriteSession(KeyValues3 *pTable) const
{
	if (!pTable)
		return;
	MakeTable(pTable);
	WriteFloats3(pTable, "PortraitLightPosition", m_LightPosition.Base());
	WriteFloats3(pTable, "PortraitLightAngles", m_LightAngles.Base());
	AddMember(pTable, "PortraitLightFOV")->SetDouble(m_flLightFOV);
	AddMember(pTable, "PortraitLightDistance")->SetDouble(m_flLightDistance);
	WriteColorArray(pTable, "PortraitLightColor", m_LightColor);
	AddMember(pTable, "PortraitLightScale")->SetDouble(m_flLightScale);
	WriteColorArray(pTable, "PortraitShadowColor", m_ShadowColor);
	AddMember(pTable, "PortraitShadowScale")->SetDouble(m_flShadowScale);
	AddMember(pTable, "PortraitGroundShadowScale")->SetDouble(m_flGroundShadowScale);
	WriteFloats3(pTable, "PortraitAmbientDirection", m_AmbientDirection.Base());
	WriteColorArray(pTable, "PortraitAmbientColor", m_AmbientColor);
	AddMember(pTable, "PortraitAmbientScale")->SetDouble(m_flAmbientScale);
	WriteColorArray(pTable, "PortraitSpecularColor", m_SpecularColor);
	WriteFloats3(pTable, "PortraitSpecularDirection", m_SpecularDirection.Base());
	AddMember(pTable, "PortraitSpecularPower")->SetDouble(m_flSpecularPower);
	for (int i = 0; i < 4; ++i)
		WriteFloats3(pTable, kBackgroundColorKeys[i], m_BackgroundColor[i].Base());
	SetMemberString(pTable, "PortraitBackgroundTexture", m_BackgroundTexture);
	SetMemberString(pTable, "PortraitParticle", m_Particle);
	SetMemberString(pTable, "PortraitBackgroundModel", m_BackgroundModel);
	SetMemberString(pTable, "PortraitBackgroundMap", m_BackgroundMap);
	SetMemberString(pTable, "PortraitAnimationActivity", m_AnimationActivity);
	SetMemberString(pTable, "PortraitAnimationSequence", m_AnimationSequence);
	AddMember(pTable, "PortraitAnimationCycle")->SetDouble(m_flAnimationCycle);
	AddMember(pTable, "PortraitAnimationRate")->SetDouble(m_flAnimationRate);
	KeyValues3 *pCameras = AddMember(pTable, "cameras");
	MakeTable(pCameras);
	for (const Camera_t &camera : m_Cameras)
	{
		KeyValues3 *pCamera = AddMember(pCameras, camera.m_Name);
		MakeTable(pCamera);
		WriteFloats3(pCamera, "PortraitPosition", camera.m_Position.Base());
		WriteFloats3(pCamera, "PortraitAngles", camera.m_Angles.Base());
		AddMember(pCamera, "PortraitFOV")->SetDouble(camera.m_flFOV);
		AddMember(pCamera, "PortraitFar")->SetDouble(camera.m_flFar);
	}
}

void CZarnPortraitRecord::ReadSession(const KeyValues3 *pTable, ImportMessageList &list)
{
	if (!pTable || !pTable->IsTable() || pTable->GetMemberCount() == 0)
		return;
	auto Vec = [&](const KeyValues3 *pFrom, const char *pszName, float *out) {
		if (!ReadFloats3(pFrom, pszName, out))
			list.AddError("#ZARN_Mintyard_Err_Misc", pszName);
	};
	auto Col = [&](const char *pszName, Color &out) {
		if (!ReadColorArray(pTable, pszName, out))
			list.AddError("#ZARN_Mintyard_Err_Misc", pszName);
	};
	Vec(pTable, "PortraitLightPosition", m_LightPosition.Base());
	Vec(pTable, "PortraitLightAngles", m_LightAngles.Base());
	ReadFloatMember(pTable, "PortraitLightFOV", m_flLightFOV);
	ReadFloatMember(pTable, "PortraitLightDistance", m_flLightDistance);
	Col("PortraitLightColor", m_LightColor);
	ReadFloatMember(pTable, "PortraitLightScale", m_flLightScale);
	Col("PortraitShadowColor", m_ShadowColor);
	ReadFloatMember(pTable, "PortraitShadowScale", m_flShadowScale);
	ReadFloatMember(pTable, "PortraitGroundShadowScale", m_flGroundShadowScale);
	Vec(pTable, "PortraitAmbientDirection", m_AmbientDirection.Base());
	Col("PortraitAmbientColor", m_AmbientColor);
	ReadFloatMember(pTable, "PortraitAmbientScale", m_flAmbientScale);
	Col("PortraitSpecularColor", m_SpecularColor);
	Vec(pTable, "PortraitSpecularDirection", m_SpecularDirection.Base());
	ReadFloatMember(pTable, "PortraitSpecularPower", m_flSpecularPower);
	for (int i = 0; i < 4; ++i)
		Vec(pTable, kBackgroundColorKeys[i], m_BackgroundColor[i].Base());
	ReadStringMember(pTable, "PortraitBackgroundTexture", m_BackgroundTexture);
	ReadStringMember(pTable, "PortraitParticle", m_Particle);
	ReadStringMember(pTable, "PortraitBackgroundModel", m_BackgroundModel);
	ReadStringMember(pTable, "PortraitBackgroundMap", m_BackgroundMap);
	ReadStringMember(pTable, "PortraitAnimationActivity", m_AnimationActivity);
	ReadStringMember(pTable, "PortraitAnimationSequence", m_AnimationSequence);
	ReadFloatMember(pTable, "PortraitAnimationCycle", m_flAnimationCycle);
	ReadFloatMember(pTable, "PortraitAnimationRate", m_flAnimationRate);
	// Read when present, though a session never holds them.
	if (const KeyValues3 *pHide = FindMember(pTable, "PortraitHideHero"))
		m_bHideHero = pHide->IsNumber() ? GetBool(pHide) : pHide->GetBoolValue();
	ReadFloatMember(pTable, "EffigyCameraOffset", m_flEffigyCameraOffset);
	if (const KeyValues3 *pCameras = FindMember(pTable, "cameras"))
	{
		pCameras->ForEachMember([&](std::string_view name, uint32, const KeyValues3 *pCamera) {
			Camera_t &camera = AddCamera(CUtlString(name).c_str());
			Vec(pCamera, "PortraitPosition", camera.m_Position.Base());
			Vec(pCamera, "PortraitAngles", camera.m_Angles.Base());
			ReadFloatMember(pCamera, "PortraitFOV", camera.m_flFOV);
			ReadFloatMember(pCamera, "PortraitFar", camera.m_flFar);
		});
	}
}
