// The models of the sample sessions: what an author brings to each model template of the sample
// game. Every mesh is on the skeleton its template expects (the couriers', the wards', a hero's
// with the bones of its own that the template names), within the template's budgets of
// triangles and bones, with colour and normal maps of the template's texture size.
#include "sessionart.h"

#include <cmath>
#include <functional>
#include <set>

#include "creature.h"
#include "figure.h"
#include "painter.h"
#include "propshapes.h"
#include "props.h"

namespace sampleart
{
namespace
{
// The levels of detail of the couriers' bodies, as the sample's own couriers have them.
constexpr double kCourierDetail = 0.6;

void WriteMesh(CArtOutput &out, const std::string &rel, const CSkeleton &skeleton, CArtMesh mesh, const Vec3 &diffuse)
{
	FbxScene_t scene;
	if (mesh.IsSkinned())
		scene.m_Skeleton = skeleton;
	scene.m_Materials.push_back({ mesh.m_Materials.empty() ? mesh.m_Name : mesh.m_Materials[0], diffuse });
	scene.m_Meshes.push_back(std::move(mesh));
	out.WriteFbx(rel, scene);
}

// `stem`_color.png and `stem`_normal.png of a prop palette, `width` by `height`.
void WritePropTextures(CArtOutput &out, const std::string &stem, const PropPalette_t &palette, int width, int height)
{
	QImage colour, normal;
	PaintPropTextures(palette, width, height, colour, normal);
	out.WritePng(stem + "_color.png", colour);
	out.WritePng(stem + "_normal.png", normal);
}

// ------------------------------------------------------------------------------------------
// The courier: a fox with a saddle on the couriers' skeleton, so that the template's default
// animations fit it, with its saddlebags as a mesh of their own; a flying form with wings; run,
// spawn and turn animations; colour, normal and specular maps at the template's 1024.

void MakeCourier(CArtOutput &out)
{
	const std::string dir = "art/courier/";
	CreatureProportions_t ground, air;
	air.bWings = true;
	const CreatureRig_t groundRig = BuildCreatureRig(ground), airRig = BuildCreatureRig(air);
	CreatureLook_t fox;
	fox.m_Body = Rgb(214, 112, 46);
	fox.m_Belly = Rgb(246, 236, 218);
	fox.m_Accent = Rgb(60, 108, 72);
	fox.m_Eye = Rgb(120, 80, 20);
	fox.m_Wing = Rgb(250, 200, 150);
	fox.m_nSeed = 81;
	fox.m_bSaddle = true;
	auto writeMesh = [&](const std::string &name, CArtMesh mesh, const CSkeleton &skeleton)
	{
		mesh.m_Name = name;
		mesh.m_Materials = { "courier" };
		WriteMesh(out, dir + name + ".fbx", skeleton, std::move(mesh), fox.m_Body);
	};
	fox.m_Name = "courier";
	writeMesh("courier_lod0", BuildCreatureBody(groundRig, fox, kCourierDetail), groundRig.m_Skeleton);
	CreatureLook_t bare = fox;
	bare.m_bSaddleBags = false;
	writeMesh("courier_lod1", BuildCreatureBody(groundRig, bare, kCourierDetail * 0.55), groundRig.m_Skeleton);
	writeMesh("courier_saddlebag", BuildSaddleBags(groundRig, "courier_saddlebag"), groundRig.m_Skeleton);
	writeMesh("courier_flying_lod0", BuildCreatureBody(airRig, fox, kCourierDetail), airRig.m_Skeleton);
	writeMesh("courier_flying_lod1", BuildCreatureBody(airRig, bare, kCourierDetail * 0.55), airRig.m_Skeleton);
	std::vector<FbxAnimation_t> anims = BuildCreatureAnimations(groundRig, false);
	FbxAnimation_t forward = anims[1];
	forward.m_Name = "run_forward";
	anims.push_back(forward);
	for (FbxAnimation_t &extra : BuildCourierExtraAnimations(groundRig))
		anims.push_back(std::move(extra));
	for (const FbxAnimation_t &anim : anims)
	{
		if (anim.m_Name == "idle")
			continue; // the session takes the template's default
		FbxScene_t scene;
		scene.m_Skeleton = groundRig.m_Skeleton;
		scene.m_Animations.push_back(anim);
		out.WriteFbx(dir + "courier_" + anim.m_Name + ".fbx", scene);
	}
	const int size = 1024;
	QImage colour, normal;
	PaintCreatureTextures(fox, size, colour, normal);
	// The specular mask: the saddle and the hooves shine, the fur does not.
	QImage specular(size, size, QImage::Format_RGB32);
	for (int y = 0; y < size; ++y)
	{
		for (int x = 0; x < size; ++x)
		{
			const int cx = x * 256 / size, cy = y * 256 / size; // the cells of the atlas as a 256 map has them
			const bool shiny = cy >= 128 && cy < 192 && cx >= 160; // the horn and accent cells
			const int g = shiny ? 200 : 40 + (int)(30 * Noise2(x / 64.0, y / 64.0, 3));
			specular.setPixel(x, y, qRgb(g, g, g));
		}
	}
	out.WritePng(dir + "courier_color.png", colour);
	out.WritePng(dir + "courier_normal.png", normal);
	out.WritePng(dir + "courier_specmask.png", specular);
}

// ------------------------------------------------------------------------------------------
// The ward: an owl carved on top of the wards' pole, on the wards' skeleton so that the
// template's default idle moves it. Textures at the template's 512.

CArtMesh OwlWard(const CSkeleton &sk, double detail)
{
	CArtMesh mesh = NewMesh("owl_ward");
	const int root = sk.Find("root"), pole1 = sk.Find("pole_1"), pole2 = sk.Find("pole_2"), eye = sk.Find("eye");
	const Vec3 top = sk.GlobalPosition(eye);
	const WeightFn_t owl = RigidWeights(eye);
	// Three roots that hold the pole in the ground.
	for (int k = 0; k < 3; ++k)
	{
		const double a = 2.0 * kPi * k / 3.0 + 0.4;
		const Vec3 out{ std::cos(a), std::sin(a), 0 };
		Tube(mesh, { { Vec3{ 0, 0, 5 }, 1.6, 1.6 }, { out * 5.0 + Vec3{ 0, 0, 2.0 }, 1.3, 1.1 }, { out * 9.0 + Vec3{ 0, 0, 0.6 }, 0.6, 0.5 } },
			Segments(6, detail), SURFACE_WOOD, RigidWeights(root), 0.5, 0.3, { 0, 0, 1 });
	}
	const WeightFn_t pole = ChainWeights({ { sk.GlobalPosition(pole1), pole1 }, { sk.GlobalPosition(pole2), pole2 }, { top - Vec3{ 0, 0, 8 }, eye } }, 5.0);
	Tube(mesh, { { { 0, 0, 0 }, 2.2, 2.2 }, { { -0.5, 0, 18 }, 1.8, 1.8 }, { { 0.4, 0, 34 }, 1.7, 1.7 }, { top - Vec3{ 0, 0, 7 }, 1.9, 1.9 } },
		Segments(8, detail), SURFACE_WOOD, pole, 0.5, 0.5);
	// The owl: a body, a head, wings folded at its sides, two eyes, a beak and ear tufts.
	mesh.AddEllipsoid(Mat4::Translation(top + Vec3{ 0, 0, -1.5 }), { 4.6, 4.2, 6.0 }, Segments(8, detail), Segments(12, detail), PropCell(SURFACE_CLOTH),
		owl);
	const Vec3 head = top + Vec3{ 0, -0.4, 6.5 };
	mesh.AddEllipsoid(Mat4::Translation(head), { 4.4, 4.0, 3.8 }, Segments(8, detail), Segments(12, detail), PropCell(SURFACE_CLOTH), owl);
	for (int side = 0; side < 2; ++side)
	{
		const double sx = side == 0 ? 1.0 : -1.0;
		mesh.AddEllipsoid(FrameAlong(top + Vec3{ sx * 4.2, 0.6, -1.0 }, { sx * 0.3, 0.1, -1.0 }, { 0, 1, 0 }), { 1.4, 3.0, 5.2 }, Segments(6, detail),
			Segments(8, detail), PropCell(SURFACE_LEATHER), owl);
		mesh.AddEllipsoid(FrameAlong(head + Vec3{ sx * 1.8, -3.4, 0.6 }, { sx * 0.2, -1.0, 0.1 }, { 1, 0, 0 }), { 1.5, 1.5, 0.8 }, Segments(6, detail),
			Segments(8, detail), PropCell(SURFACE_CRYSTAL), owl);
		Spike(mesh, head + Vec3{ sx * 2.6, 0.2, 2.8 }, { sx * 0.35, 0.1, 1.0 }, 3.4, 1.2, 5, SURFACE_LEATHER, owl);
	}
	Spike(mesh, head + Vec3{ 0, -3.4, -0.8 }, { 0, -0.6, -1.0 }, 2.2, 0.8, 5, SURFACE_METAL, owl);
	// Its feet on a perch ring.
	Tube(mesh, { { top + Vec3{ -3.2, 0, -7.0 }, 0.7, 0.7 }, { top + Vec3{ 3.2, 0, -7.0 }, 0.7, 0.7 } }, 5, SURFACE_METAL, owl, 0.3, 0.3);
	return mesh;
}

void MakeWard(CArtOutput &out)
{
	const std::string dir = "art/ward/";
	const CSkeleton sk = BuildWardSkeleton();
	for (int lod = 0; lod < 2; ++lod)
	{
		CArtMesh mesh = OwlWard(sk, lod == 0 ? 1.0 : 0.5);
		mesh.m_Name = lod == 0 ? "owl_ward" : "owl_ward_lod1";
		WriteMesh(out, dir + (lod == 0 ? "owl_ward.fbx" : "owl_ward_lod1.fbx"), sk, std::move(mesh), Rgb(120, 90, 60));
	}
	// wood, metal, cloth (feathers), leaf, glow, stone, leather (wings and tufts), crystal (eyes)
	const PropPalette_t palette = Palette({ Rgb(104, 76, 52), Rgb(190, 150, 70), Rgb(150, 118, 86), Rgb(80, 130, 70), Rgb(255, 210, 110),
											  Rgb(140, 136, 128), Rgb(96, 70, 50), Rgb(250, 190, 60) },
		43);
	WritePropTextures(out, dir + "owl_ward", palette, 512, 512);
}

// ------------------------------------------------------------------------------------------
// Wearables of the heroes' slots, each skinned to the bones of the hero it is made for.

using WearableBuild_t = std::function<CArtMesh(CSkeleton &sk, const HumanoidRig_t &rig, double detail)>;

// A crown of briars for Bramble's head: two thorny vines wound around the brow, with berries and
// leaves.
CArtMesh BriarCrown(CSkeleton &sk, const HumanoidRig_t &rig, double detail)
{
	CArtMesh mesh = NewMesh("briar_crown");
	const WeightFn_t head = RigidWeights(sk.Find("head"));
	const double hs = rig.m_Proportions.flHeadSize * rig.m_Proportions.flScale;
	const Vec3 hc = rig.m_HeadCentre + Vec3{ 0, 0, 3.0 * hs };
	const double rx = 8.7 * hs, ry = 9.5 * hs;
	auto around = [&](double a, double lift) { return hc + Vec3{ rx * std::cos(a), ry * std::sin(a), lift }; };
	const int stations = std::max(8, (int)std::lround(20 * detail));
	for (int vine = 0; vine < 2; ++vine)
	{
		std::vector<Station_t> path;
		const double start = Radians(vine == 0 ? -80.0 : 100.0);
		for (int i = 0; i <= stations; ++i)
		{
			const double a = start + Radians(300.0) * i / stations;
			path.push_back({ around(a, 1.3 * hs * std::sin(3.0 * a + vine * kPi)), 0.9 * hs, 0.9 * hs });
		}
		Tube(mesh, path, Segments(6, detail), SURFACE_WOOD, head, 0.5 * hs, 0.5 * hs, { 0, 0, 1 });
	}
	// Thorns outward and up, all around.
	const int thorns = std::max(6, (int)std::lround(10 * detail));
	for (int k = 0; k < thorns; ++k)
	{
		const double a = 2.0 * kPi * (k + 0.25) / thorns;
		const Vec3 out{ std::cos(a), std::sin(a), 0 };
		Spike(mesh, around(a, 1.3 * hs * std::sin(3.0 * a)) + out * (0.6 * hs), out + Vec3{ 0, 0, 0.7 }, 3.0 * hs, 0.6 * hs, 4, SURFACE_WOOD, head);
	}
	// Berries in clusters over the temples and at the back, and three leaves.
	for (double deg : { 200.0, 340.0, 90.0 })
	{
		const double a = Radians(deg);
		for (int n = 0; n < 2; ++n)
			mesh.AddEllipsoid(Mat4::Translation(around(a + 0.12 * n, 1.4 * hs + 0.9 * hs * n) + Vec3{ std::cos(a), std::sin(a), 0 } * (1.2 * hs)),
				Vec3{ 1.1, 1.1, 1.1 } * hs, 4, 6, PropCell(SURFACE_GLOW), head);
	}
	for (double deg : { 160.0, 20.0, 270.0 })
	{
		const double a = Radians(deg);
		const Vec3 out{ std::cos(a), std::sin(a), 0 };
		LeafSlab(mesh, around(a, 0.8 * hs), out + Vec3{ 0, 0, 0.5 }, Vec3{ 0, 0, 1 } - out * 0.5, 5.0 * hs, 1.8 * hs, head, detail);
	}
	return mesh;
}

// A quiver of thorn arrows across Bramble's back, from the right hip up over the left shoulder.
CArtMesh ThornQuiver(CSkeleton &sk, const HumanoidRig_t &rig, double detail)
{
	CArtMesh mesh = NewMesh("thorn_quiver");
	const double s = rig.m_Proportions.flScale;
	const int spine1 = sk.Find("spine_1"), spine2 = sk.Find("spine_2");
	const Vec3 bottom = Vec3{ -9.0 * s, 14.5 * s, sk.GlobalPosition(spine1).z - 6.0 * s };
	const Vec3 top = Vec3{ 8.0 * s, 15.0 * s, rig.m_flShoulderZ + 8.0 * s };
	const Vec3 axis = Normalize(top - bottom);
	const WeightFn_t weights = ChainWeights({ { bottom, spine1 }, { sk.GlobalPosition(spine2), spine2 } }, 8.0 * s);
	std::vector<Station_t> body;
	const double length = Length(top - bottom);
	for (int i = 0; i <= 6; ++i)
	{
		const double t = i / 6.0;
		const double r = (4.0 + 0.8 * t) * s;
		body.push_back({ bottom + axis * (length * t), r, r * 0.8 });
	}
	Tube(mesh, body, Segments(12, detail), SURFACE_LEATHER, weights, 1.0 * s, 0.0, { 0, 1, 0 });
	// Bands of metal at the rim and the foot.
	for (double t : { 0.06, 0.97 })
		Tube(mesh, { { bottom + axis * (length * (t - 0.03)), 5.1 * s, 4.2 * s }, { bottom + axis * (length * (t + 0.03)), 5.1 * s, 4.2 * s } },
			Segments(12, detail), SURFACE_METAL, weights, 0.0, 0.0, { 0, 1, 0 });
	// Five arrows standing out of it, fletched with leaves.
	const Vec3 across = Normalize(Cross(axis, { 0, 1, 0 }));
	for (int k = 0; k < 5; ++k)
	{
		const Vec3 foot = top + across * ((k - 2) * 1.5 * s) + Vec3{ 0, (k % 2 ? 1.0 : -1.0) * s, 0 } - axis * (6.0 * s);
		const Vec3 dir = Normalize(axis + across * (0.06 * (k - 2)));
		const Vec3 tip = foot + dir * ((15.0 + 1.5 * (k % 3)) * s);
		Tube(mesh, { { foot, 0.45 * s, 0.45 * s }, { tip, 0.45 * s, 0.45 * s } }, 5, SURFACE_WOOD, RigidWeights(spine2), 0.1 * s, 0.1 * s);
		LeafSlab(mesh, tip - dir * (4.5 * s), dir, Vec3{ 0, 1, 0 }, 5.0 * s, 1.4 * s, RigidWeights(spine2), detail);
	}
	return mesh;
}

// An ember sceptre for Cinder's hand: a cage of four bars at its head around an ember that sits
// on a bone of its own, "staff_tip", which the slot's particle snapshot follows.
CArtMesh EmberSceptre(CSkeleton &sk, const HumanoidRig_t &rig, double detail)
{
	CArtMesh mesh = NewMesh("ember_sceptre");
	const int handBone = sk.Find("hand_r");
	const WeightFn_t hand = RigidWeights(handBone);
	const double s = rig.m_Proportions.flScale;
	const StaffLine_t line = HeldStaff(rig);
	const Vec3 ember = line.At(40.0 * s);
	const int tip = sk.Find("staff_tip") >= 0 ? sk.Find("staff_tip") : sk.Add("staff_tip", handBone, ember);
	Tube(mesh, { { line.At(-14.0 * s), 1.4 * s, 1.4 * s }, { line.At(-11.0 * s), 1.1 * s, 1.1 * s }, { line.At(30.0 * s), 1.2 * s, 1.2 * s },
				   { line.At(33.0 * s), 2.2 * s, 2.2 * s } },
		Segments(10, detail), SURFACE_METAL, hand, 1.0 * s, 0.4 * s);
	// The grip's leather wrap.
	Tube(mesh, { { line.At(-6.0 * s), 1.5 * s, 1.5 * s }, { line.At(6.0 * s), 1.5 * s, 1.5 * s } }, Segments(10, detail), SURFACE_LEATHER, hand, 0.2 * s,
		0.2 * s);
	// The cage: four bars that bow out around the ember and meet in a spike above it.
	const Vec3 across = Normalize(Cross(line.dir, { 0, 1, 0 })), depth = Cross(line.dir, across);
	for (int k = 0; k < 4; ++k)
	{
		const double a = kPi / 4.0 + kPi / 2.0 * k;
		const Vec3 out = across * std::cos(a) + depth * std::sin(a);
		std::vector<Station_t> bar;
		for (int i = 0; i <= 4; ++i)
		{
			const double t = i / 4.0;
			bar.push_back({ line.At((33.0 + 14.0 * t) * s) + out * (5.0 * std::sin(t * kPi) * s + 1.2 * s * (1.0 - t)), 0.5 * s, 0.5 * s });
		}
		Tube(mesh, bar, Segments(5, detail), SURFACE_METAL, hand, 0.2 * s, 0.2 * s);
	}
	Spike(mesh, line.At(46.0 * s), line.dir, 6.0 * s, 1.2 * s, Segments(6, detail), SURFACE_METAL, hand);
	mesh.AddEllipsoid(Mat4::Translation(ember), Vec3{ 3.0, 3.0, 3.4 } * s, Segments(8, detail), Segments(10, detail), PropCell(SURFACE_GLOW), RigidWeights(tip));
	return mesh;
}

// The flames of the ember, for the particle snapshot: tongues of fire around the ember, on the
// "staff_tip" bone. Only its points matter to a snapshot.
CArtMesh EmberFlames(CSkeleton &sk, const HumanoidRig_t &rig)
{
	CArtMesh mesh = NewMesh("ember_flames");
	const double s = rig.m_Proportions.flScale;
	const int tip = sk.Find("staff_tip");
	const Vec3 ember = sk.GlobalPosition(tip);
	const StaffLine_t line = HeldStaff(rig);
	const WeightFn_t flame = RigidWeights(tip);
	for (int k = 0; k < 6; ++k)
	{
		const double a = 2.0 * kPi * k / 6.0;
		const Vec3 out = Normalize(Cross(line.dir, { 0, 1, 0 })) * std::cos(a) + Vec3{ 0, 1, 0 } * std::sin(a);
		Spike(mesh, ember + out * (1.5 * s), line.dir + out * 0.35, (6.0 + 2.0 * (k % 3)) * s, 1.6 * s, 6, SURFACE_GLOW, flame);
	}
	mesh.AddEllipsoid(Mat4::Translation(ember + line.dir * (2.0 * s)), Vec3{ 3.4, 3.4, 4.6 } * s, 6, 10, PropCell(SURFACE_GLOW), flame);
	return mesh;
}

// A hook-spear of coral for Tidewarden: a shaft of driftwood, a curved coral hook with barbs, a
// shell at the grip.
CArtMesh CoralHook(CSkeleton &sk, const HumanoidRig_t &rig, double detail)
{
	CArtMesh mesh = NewMesh("coral_hook");
	const WeightFn_t hand = RigidWeights(sk.Find("hand_r"));
	const double s = rig.m_Proportions.flScale;
	const StaffLine_t line = HeldStaff(rig);
	std::vector<Station_t> shaft;
	for (int i = 0; i <= 6; ++i)
	{
		const double along = (-34.0 + 90.0 * i / 6.0) * s;
		shaft.push_back({ line.At(along) + Vec3{ 0.4 * std::sin(i * 2.1), 0.3 * std::cos(i * 1.7), 0 } * s, (1.7 - 0.05 * i) * s, (1.6 - 0.05 * i) * s });
	}
	Tube(mesh, shaft, Segments(9, detail), SURFACE_WOOD, hand, 0.6 * s, 0.3 * s);
	// The hook: out to the front and curling back down, thick at its root.
	const Vec3 head = line.At(56.0 * s);
	const Vec3 forward = Normalize(Cross({ 1, 0, 0 }, line.dir)) * -1.0; // toward the figure's front, -Y
	std::vector<Station_t> hook;
	for (int i = 0; i <= 10; ++i)
	{
		const double a = kPi * 1.2 * i / 10.0;
		const Vec3 p = head + line.dir * (10.0 * std::sin(a) * s) + forward * (10.0 * (1.0 - std::cos(a)) * s);
		const double r = (2.6 - 2.2 * i / 10.0) * s;
		hook.push_back({ p, r, r * 0.8 });
	}
	Tube(mesh, hook, Segments(8, detail), SURFACE_STONE, hand, 0.6 * s, 0.3 * s, { 1, 0, 0 });
	// Branches of coral along the back of the hook, and a point straight up.
	for (int k = 0; k < 4; ++k)
	{
		const double a = kPi * (0.15 + 0.2 * k);
		const Vec3 root = head + line.dir * (10.0 * std::sin(a) * s) + forward * (10.0 * (1.0 - std::cos(a)) * s);
		const Vec3 out = Normalize(line.dir * std::sin(a) - forward * std::cos(a)) * -1.0; // away from the hook's centre
		Spike(mesh, root, out + Vec3{ 0.4 * (k % 2 ? 1.0 : -1.0), 0, 0 }, (5.0 + 1.5 * (k % 2)) * s, 1.2 * s, Segments(5, detail), SURFACE_STONE, hand);
	}
	Spike(mesh, head, line.dir - forward * 0.15, 16.0 * s, 1.8 * s, Segments(7, detail), SURFACE_STONE, hand);
	// A shell clasped to the grip.
	mesh.AddEllipsoid(FrameAlong(line.At(8.0 * s) + forward * (1.8 * s), forward, line.dir), Vec3{ 3.0, 3.8, 1.2 } * s, Segments(6, detail),
		Segments(10, detail), PropCell(SURFACE_CRYSTAL), hand);
	return mesh;
}

struct Wearable_t
{
	const char *pszHero; // the hero's short name
	const char *pszSlot;
	WearableBuild_t build;
	PropPalette_t palette;
	int textureWidth, textureHeight; // the slot's
	bool bSnapshot;					  // the slot asks for a particle snapshot of the ember
};

void MakeWearable(CArtOutput &out, const Wearable_t &w)
{
	const std::string name = std::string(w.pszHero) + "_" + w.pszSlot;
	const std::string dir = "art/wearables/" + name + "/";
	const HumanoidRig_t rig = BuildHumanoidRig(HeroStyle(w.pszHero).m_Proportions);
	// Both levels on one skeleton: the hero's with the bones the builder adds, cut down to what
	// the meshes use.
	CSkeleton skeleton = rig.m_Skeleton;
	std::vector<CArtMesh> lods;
	lods.push_back(w.build(skeleton, rig, 1.0));
	lods.push_back(w.build(skeleton, rig, 0.5));
	const size_t meshes = lods.size();
	if (w.bSnapshot)
		lods.push_back(EmberFlames(skeleton, rig));
	skeleton = PruneSkeleton(skeleton, lods, {});
	for (size_t i = 0; i < lods.size(); ++i)
	{
		const std::string file = i == 0 ? name : (i < meshes ? name + "_lod1" : name + "_fx");
		lods[i].m_Name = file;
		lods[i].m_Materials = { name };
		WriteMesh(out, dir + file + ".fbx", skeleton, std::move(lods[i]), w.palette.m_Colours[SURFACE_WOOD]);
	}
	WritePropTextures(out, dir + name, w.palette, w.textureWidth, w.textureHeight);
}

// ------------------------------------------------------------------------------------------
// Bramble's lantern, the custom wearable of his misc slot: a seed pod hung from the left hip
// on a vine, glowing through its ribs, on a bone of its own named "lantern" as the template's
// attachment asks. Two skins: its own colours, and a frosted-glass alternative.

CArtMesh SeedPodLantern(CSkeleton &sk, const HumanoidRig_t &rig, double detail)
{
	CArtMesh mesh = NewMesh("seed_pod_lantern");
	const double s = rig.m_Proportions.flScale;
	const int pelvis = sk.Find("pelvis");
	const Vec3 hook = Vec3{ 13.5 * s, -1.0 * s, sk.GlobalPosition(pelvis).z + 1.0 * s };
	const Vec3 pod = hook + Vec3{ 2.0, -1.5, -13.0 } * s;
	const int lantern = sk.Find("lantern") >= 0 ? sk.Find("lantern") : sk.Add("lantern", pelvis, pod + Vec3{ 0, 0, 4.5 } * s);
	const WeightFn_t belt = RigidWeights(pelvis), hanging = RigidWeights(lantern);
	// The vine: from a knot at the belt down to the pod's stem, swaying a little.
	mesh.AddEllipsoid(Mat4::Translation(hook), Vec3{ 1.8, 1.8, 1.2 } * s, 4, Segments(8, detail), PropCell(SURFACE_LEAF), belt);
	Tube(mesh, { { hook, 0.55 * s, 0.55 * s }, { hook + Vec3{ 1.4, -0.4, -4.0 } * s, 0.5 * s, 0.5 * s }, { pod + Vec3{ 0.4, 0, 5.5 } * s, 0.45 * s, 0.45 * s } },
		Segments(5, detail), SURFACE_WOOD, [&](const Vec3 &p) { return p.z > pod.z + 7.0 * s ? belt(p) : hanging(p); }, 0.2 * s, 0.2 * s);
	// The pod: ribs around a glowing heart, a cap and a leaf.
	mesh.AddEllipsoid(Mat4::Translation(pod), Vec3{ 2.6, 2.6, 3.0 } * s, Segments(6, detail), Segments(8, detail), PropCell(SURFACE_GLOW), hanging);
	const int ribs = detail < 0.75 ? 4 : 6;
	for (int k = 0; k < ribs; ++k)
	{
		const double a = 2.0 * kPi * k / ribs;
		const Vec3 out{ std::cos(a), std::sin(a), 0 };
		mesh.AddEllipsoid(FrameAlong(pod + out * (2.6 * s), { 0, 0, 1 }, out), Vec3{ 0.8, 1.4, 4.2 } * s, 5, Segments(6, detail), PropCell(SURFACE_WOOD),
			hanging);
	}
	Spike(mesh, pod + Vec3{ 0, 0, 3.2 } * s, { 0, 0, 1 }, 2.6 * s, 2.4 * s, Segments(6, detail), SURFACE_LEATHER, hanging);
	Spike(mesh, pod - Vec3{ 0, 0, 3.2 } * s, { 0, 0, -1 }, 2.4 * s, 1.8 * s, Segments(6, detail), SURFACE_LEATHER, hanging);
	LeafSlab(mesh, pod + Vec3{ 0.6, 0, 5.4 } * s, { 1.0, -0.4, 0.3 }, { 0, -0.3, 1 }, 5.0 * s, 1.8 * s, hanging, detail);
	return mesh;
}

void MakeBrambleMisc(CArtOutput &out)
{
	const std::string dir = "art/bramble_misc/";
	const HumanoidRig_t rig = BuildHumanoidRig(HeroStyle("bramble").m_Proportions);
	CSkeleton skeleton = rig.m_Skeleton;
	std::vector<CArtMesh> lods = { SeedPodLantern(skeleton, rig, 1.0), SeedPodLantern(skeleton, rig, 0.5) };
	skeleton = PruneSkeleton(skeleton, lods, { "lantern" });
	const char *const files[2] = { "seed_pod_lantern", "seed_pod_lantern_lod1" };
	for (int lod = 0; lod < 2; ++lod)
	{
		lods[lod].m_Name = files[lod];
		lods[lod].m_Materials = { "seed_pod_lantern" };
		WriteMesh(out, dir + files[lod] + ".fbx", skeleton, std::move(lods[lod]), Rgb(120, 90, 50));
	}
	// wood (ribs), metal, cloth, leaf, glow (the heart), stone, leather (cap), crystal
	WritePropTextures(out, dir + "seed_pod_lantern",
		Palette({ Rgb(128, 92, 48), Rgb(150, 140, 110), Rgb(70, 110, 50), Rgb(86, 150, 60), Rgb(255, 214, 120), Rgb(200, 190, 160), Rgb(96, 70, 40),
			Rgb(160, 230, 140) },
			14),
		256, 256);
	WritePropTextures(out, dir + "seed_pod_lantern_glass",
		Palette({ Rgb(196, 222, 226), Rgb(210, 214, 220), Rgb(150, 190, 200), Rgb(170, 220, 200), Rgb(200, 250, 255), Rgb(220, 226, 230),
			Rgb(170, 190, 200), Rgb(230, 250, 255) },
			15),
		128, 128);
}

// ------------------------------------------------------------------------------------------
// The thorn of Thorn Volley: a curved thorn that flies point first (-Y) on a skeleton of two
// bones, "thorn_root" (the one the template's snapshot names) and "thorn_tip"; and a trail of
// sparks behind it for the snapshot.

void MakeThornVolley(CArtOutput &out)
{
	const std::string dir = "art/bramble_thorn_volley/";
	CSkeleton sk;
	const int root = sk.Add("thorn_root", -1, { 0, 0, 0 });
	const int tip = sk.Add("thorn_tip", root, { 0, -9.0, 0.8 });
	const WeightFn_t weights = ChainWeights({ { { 0, 4.0, 0 }, root }, { { 0, -9.0, 0.8 }, tip } }, 3.0);
	CArtMesh thorn = NewMesh("thorn");
	std::vector<Station_t> body;
	for (int i = 0; i <= 6; ++i)
	{
		const double t = i / 6.0;
		const double r = 2.4 * (1.0 - t) + 0.1;
		body.push_back({ { 0, 5.0 - 18.0 * t, 1.6 * t * t }, r, r * 0.85 });
	}
	Tube(thorn, body, 8, SURFACE_WOOD, weights, 1.2, 0.1, { 1, 0, 0 });
	for (int side = 0; side < 2; ++side)
	{
		const double sx = side == 0 ? 1.0 : -1.0;
		Spike(thorn, { sx * 1.2, -1.0, 0.3 }, { sx, 0.8, 0.2 }, 3.0, 0.6, 4, SURFACE_WOOD, weights);
		LeafSlab(thorn, { sx * 1.0, 4.5, 0.2 }, { sx * 0.6, 1.0, 0.2 }, { 0, 0, 1 }, 4.0, 1.4, RigidWeights(root), 0.5);
	}
	WriteMesh(out, dir + "thorn.fbx", sk, thorn, Rgb(110, 80, 50));
	CArtMesh trail = NewMesh("thorn_trail");
	for (int k = 0; k < 5; ++k)
	{
		const double along = 7.0 + 4.0 * k;
		trail.AddEllipsoid(Mat4::Translation({ 0.6 * std::sin(k * 2.0), along, 0.5 * std::cos(k * 1.3) }), Vec3{ 1.0, 1.6, 1.0 } * (1.0 - 0.12 * k), 4, 6,
			PropCell(SURFACE_GLOW), RigidWeights(root));
	}
	trail.m_Name = "thorn_fx";
	WriteMesh(out, dir + "thorn_fx.fbx", sk, trail, Rgb(220, 250, 140));
	WritePropTextures(out, dir + "thorn",
		Palette({ Rgb(92, 64, 40), Rgb(110, 105, 90), Rgb(50, 80, 40), Rgb(70, 130, 50), Rgb(210, 250, 130), Rgb(214, 200, 170), Rgb(90, 60, 40),
			Rgb(200, 90, 90) },
			16),
		256, 256);
}
} // namespace

void MakeSessionModels(CArtOutput &out)
{
	MakeCourier(out);
	MakeWard(out);
	// wood, metal, cloth, leaf, glow, stone, leather, crystal
	const Wearable_t wearables[] = {
		{ "bramble", "head", BriarCrown,
			Palette({ Rgb(88, 62, 40), Rgb(150, 140, 110), Rgb(70, 110, 50), Rgb(72, 134, 56), Rgb(176, 30, 64), Rgb(200, 190, 160), Rgb(110, 76, 46),
				Rgb(160, 230, 140) },
				17),
			512, 512, false },
		{ "bramble", "back", ThornQuiver,
			Palette({ Rgb(132, 96, 58), Rgb(170, 150, 100), Rgb(70, 110, 50), Rgb(96, 160, 70), Rgb(190, 240, 120), Rgb(200, 190, 160), Rgb(104, 66, 40),
				Rgb(160, 230, 140) },
				18),
			512, 256, false },
		{ "cinder", "weapon", EmberSceptre,
			Palette({ Rgb(60, 36, 28), Rgb(120, 110, 110), Rgb(170, 40, 26), Rgb(200, 90, 30), Rgb(255, 170, 60), Rgb(90, 80, 80), Rgb(110, 44, 28),
				Rgb(255, 120, 80) },
				22),
			512, 512, true },
		{ "tidewarden", "weapon", CoralHook,
			Palette({ Rgb(150, 132, 110), Rgb(120, 180, 190), Rgb(30, 70, 130), Rgb(40, 130, 100), Rgb(160, 240, 255), Rgb(236, 120, 110),
				Rgb(40, 60, 80), Rgb(240, 226, 236) },
				32),
			512, 512, false },
	};
	for (const Wearable_t &w : wearables)
		MakeWearable(out, w);
	MakeBrambleMisc(out);
	MakeThornVolley(out);
}

void MakeSessionArt(CArtOutput &out)
{
	MakeSessionModels(out);
	MakeSessionImages(out);
	MakeSessionMusic(out);
}
} // namespace sampleart
