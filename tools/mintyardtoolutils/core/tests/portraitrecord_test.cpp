// The portrait record: its text form in item keys (order, formats, defaults, the keys written
// only when they differ or already exist) and its session form.
#include <gtest/gtest.h>

#include "core/keyvalues.h"
#include "core/keyvalues3.h"
#include "core/kv3text.h"
#include "mintyardtoolutils/core/importmessages.h"
#include "mintyardtoolutils/core/portraitrecord.h"

namespace
{
std::string KeyOrder(KeyValues *pKeys)
{
	std::string order;
	for (KeyValues *pKey = pKeys->GetFirstSubKey(); pKey; pKey = pKey->GetNextKey())
		order += std::string(order.empty() ? "" : ",") + pKey->GetName();
	return order;
}
} // namespace

TEST(PortraitRecord, TextFormWritesInTheGamesOrderWithItsFormats)
{
	CZarnPortraitRecord record;
	record.m_Cameras[0].m_Position = Vector(10.5f, -2.0f, 80.0f);
	record.m_Cameras[0].m_Angles = QAngle(5.0f, 180.0f, 0.0f);
	record.m_LightColor = Color(1, 2, 3, 4);
	record.m_AmbientDirection = Vector(1.0f, 2.5f, -3.25f);
	record.m_bHideDropShadow = true;
	KeyValues keys("portrait");
	record.WriteKeys(&keys);
	EXPECT_EQ(KeyOrder(&keys),
		"cameras,PortraitLightPosition,PortraitLightAngles,PortraitLightFOV,PortraitLightDistance,PortraitLightColor,"
		"PortraitLightScale,PortraitShadowColor,PortraitShadowScale,PortraitGroundShadowScale,PortraitAmbientDirection,"
		"PortraitAmbientColor,PortraitAmbientScale,PortraitSpecularColor,PortraitSpecularDirection,PortraitSpecularPower,"
		"PortraitBackgroundColor1,PortraitBackgroundColor2,PortraitBackgroundColor3,PortraitBackgroundColor4,"
		"PortraitBackgroundTexture,PortraitParticle,PortraitBackgroundModel,PortraitBackgroundMap,PortraitAnimationActivity,"
		"PortraitAnimationSequence,PortraitAnimationCycle,PortraitAnimationRate,PortraitPlayIdleExpression,PortraitHideHero,"
		"PortraitHideParticles,PortraitHideDropShadow,PortraitDesaturateParticles,PortraitDesaturateHero,PortraitVignetteItem");
	EXPECT_STREQ(keys.GetString("cameras/default/PortraitPosition"), "10.500000 -2.000000 80.000000");
	EXPECT_STREQ(keys.GetString("cameras/default/PortraitAngles"), "5.000000 180.000000 0.000000");
	EXPECT_EQ(keys.FindKey("cameras/default/PortraitShadowFarZ"), nullptr); // only when not 0
	EXPECT_STREQ(keys.GetString("PortraitLightColor"), "1 2 3");				// alpha is not stored
	EXPECT_STREQ(keys.GetString("PortraitAmbientDirection"), "1.000 2.500 -3.250");
	EXPECT_EQ(keys.GetInt("PortraitHideDropShadow"), 1);

	// Read back, every field survives; alpha comes back full.
	CZarnPortraitRecord back;
	back.ReadKeys(&keys);
	EXPECT_EQ(back.m_Cameras[0].m_Position, record.m_Cameras[0].m_Position);
	EXPECT_EQ(back.m_LightColor, Color(1, 2, 3, 255));
	EXPECT_EQ(back.m_AmbientDirection, record.m_AmbientDirection);
	EXPECT_TRUE(back.m_bHideDropShadow);
	EXPECT_FLOAT_EQ(back.m_flEffigyZoomOut, 1.7f); // not written, read back as its default
}

TEST(PortraitRecord, MissingKeysTakeTheirDefaults)
{
	KeyValues empty("portrait");
	CZarnPortraitRecord record;
	record.m_flLightFOV = 99.0f;
	record.ReadKeys(&empty);
	EXPECT_FLOAT_EQ(record.m_flLightFOV, 15.0f);
	EXPECT_FLOAT_EQ(record.m_flLightDistance, 250.0f);
	EXPECT_EQ(record.m_ShadowColor, Color(89, 89, 89));
	EXPECT_EQ(record.m_AmbientDirection, Vector(400.0f, -400.0f, -50.0f));
	EXPECT_EQ(record.m_SpecularDirection, Vector(0.0f, 0.0f, -1.0f));
	EXPECT_EQ(record.m_BackgroundColor[3], Vector(1.0f, 1.0f, 1.0f));
	EXPECT_FLOAT_EQ(record.m_flEffigyGroundOffset, -23.0f);
	ASSERT_EQ(record.m_Cameras.size(), 1u);
	EXPECT_EQ(record.m_Cameras[0].m_Name, "default");
	EXPECT_EQ(record.m_Cameras[0].m_Position, Vector(0, 0, 0)); // what the not-edited rule looks for
}

TEST(PortraitRecord, SummonAndEffigyKeysOnlyWhenTheyDifferOrAlreadyExist)
{
	CZarnPortraitRecord record;
	KeyValues fresh("portrait");
	record.WriteKeys(&fresh);
	EXPECT_EQ(fresh.FindKey("SummonScale"), nullptr);
	EXPECT_EQ(fresh.FindKey("SummonPosition"), nullptr);
	EXPECT_EQ(fresh.FindKey("summons"), nullptr);
	EXPECT_EQ(fresh.FindKey("EffigyZoomOut"), nullptr);

	// Once the key exists in the tree it is always rewritten.
	KeyValues existing("portrait");
	existing.SetFloat("SummonScale", 2.0f);
	existing.FindKey("summons", true)->AddKey("npc_old")->SetFloat("Scale", 3.0f);
	record.WriteKeys(&existing);
	EXPECT_FLOAT_EQ(existing.GetFloat("SummonScale"), 1.0f);
	EXPECT_EQ(existing.FindKey("summons"), nullptr); // deleted, and no units to write anew

	record.m_flEffigyZoomOut = 2.0f;
	record.m_SummonPosition = Vector(1, 0, 0);
	record.m_Summons.push_back({ "npc_zarn_tidewarden_spirit", Vector(1, 2, 3), QAngle(0, 90, 0), 0.5f });
	KeyValues keys("portrait");
	record.WriteKeys(&keys);
	EXPECT_FLOAT_EQ(keys.GetFloat("EffigyZoomOut"), 2.0f);
	EXPECT_STREQ(keys.GetString("SummonPosition"), "1.000000 0.000000 0.000000");
	EXPECT_STREQ(keys.GetString("summons/npc_zarn_tidewarden_spirit/Angles"), "0.000000 90.000000 0.000000");
	CZarnPortraitRecord back;
	back.ReadKeys(&keys);
	ASSERT_EQ(back.m_Summons.size(), 1u);
	EXPECT_FLOAT_EQ(back.m_Summons[0].m_flScale, 0.5f);
	EXPECT_EQ(back.m_Summons[0].m_Position, Vector(1, 2, 3));
}

TEST(PortraitRecord, SessionFormKeepsItsSubsetAndReportsMissingVectors)
{
	CZarnPortraitRecord record;
	record.m_LightPosition = Vector(1, 2, 3);
	record.m_AmbientColor = Color(10, 20, 30);
	record.m_BackgroundTexture = "materials/vgui/econ/item_icon_bg_blue.zmat";
	record.m_bHideDropShadow = true; // not part of a session
	record.AddCamera("summons").m_flFOV = 30.0f;
	CKeyValues3Context context;
	record.WriteSession(context.Root());
	EXPECT_EQ(FindMember(context.Root(), "PortraitHideDropShadow"), nullptr);

	ImportMessageList list;
	CZarnPortraitRecord back;
	back.ReadSession(context.Root(), list);
	EXPECT_EQ(list.Count(), 0);
	EXPECT_EQ(back.m_LightPosition, Vector(1, 2, 3));
	EXPECT_EQ(back.m_AmbientColor, Color(10, 20, 30));
	EXPECT_EQ(back.m_BackgroundTexture, record.m_BackgroundTexture);
	EXPECT_FALSE(back.m_bHideDropShadow);
	ASSERT_NE(back.FindCamera("summons"), nullptr);
	EXPECT_FLOAT_EQ(back.FindCamera("summons")->m_flFOV, 30.0f);

	// A table with members that lacks a vector keeps that field and says which member.
	context.Root()->RemoveMember("PortraitLightPosition");
	CZarnPortraitRecord partial;
	partial.m_LightPosition = Vector(7, 7, 7);
	partial.ReadSession(context.Root(), list);
	ASSERT_EQ(list.Count(), 1);
	EXPECT_EQ(list[0].Message(), "#ZARN_Mintyard_Err_Misc");
	EXPECT_EQ(list[0].Arg(1), "PortraitLightPosition");
	EXPECT_EQ(partial.m_LightPosition, Vector(7, 7, 7));

	// An empty table is a portrait nobody edited yet: nothing changes, nothing is said.
	CKeyValues3Context empty;
	MakeTable(empty.Root());
	ImportMessageList quiet;
	partial.ReadSession(empty.Root(), quiet);
	EXPECT_EQ(quiet.Count(), 0);
}

TEST(PortraitRecord, ACameraNameIsANameNotAPath)
{
	CZarnPortraitRecord record;
	record.AddCamera("close/up").m_Position = Vector(1.0f, 2.0f, 3.0f);
	KeyValues keys("portrait");
	record.WriteKeys(&keys);
	KeyValues *pCameras = keys.FindKey("cameras");
	ASSERT_NE(pCameras, nullptr);
	int nCameras = 0;
	for (KeyValues *pCamera = pCameras->GetFirstSubKey(); pCamera; pCamera = pCamera->GetNextKey())
		++nCameras;
	EXPECT_EQ(nCameras, 2);
	CZarnPortraitRecord reread;
	reread.ReadKeys(&keys);
	ASSERT_EQ(reread.m_Cameras.size(), 2u);
	ASSERT_NE(reread.FindCamera("close/up"), nullptr);
	EXPECT_EQ(reread.FindCamera("close/up")->m_Position, Vector(1.0f, 2.0f, 3.0f));
	// Written again into the same keys, each camera keeps its one entry.
	reread.WriteKeys(&keys);
	nCameras = 0;
	for (KeyValues *pCamera = pCameras->GetFirstSubKey(); pCamera; pCamera = pCamera->GetNextKey())
		++nCameras;
	EXPECT_EQ(nCameras, 2);
}
