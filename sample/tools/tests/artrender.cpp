#include "artrender.h"

#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <map>

namespace artrender
{
namespace
{
struct Vertex_t
{
	aiVector3D position, normal;
	float u = 0.0f, v = 0.0f;
};

struct Part_t
{
	std::vector<Vertex_t> vertices;
	std::vector<unsigned> indices;
	QImage texture;
};

// Node transforms of an animation at a time: every node's world matrix, by name.
std::map<std::string, aiMatrix4x4> PoseAt(const aiScene *scene, double seconds)
{
	std::map<std::string, const aiNodeAnim *> channels;
	double ticks = 0.0;
	if (scene->mNumAnimations)
	{
		const aiAnimation *anim = scene->mAnimations[0];
		const double rate = anim->mTicksPerSecond > 0 ? anim->mTicksPerSecond : 30.0;
		ticks = std::fmod(seconds * rate, std::max(anim->mDuration, 1e-9));
		for (unsigned c = 0; c < anim->mNumChannels; ++c)
			channels[anim->mChannels[c]->mNodeName.C_Str()] = anim->mChannels[c];
	}
	auto lerpKeys = [&](const aiVectorKey *keys, unsigned count, const aiVector3D &fallback)
	{
		if (!count)
			return fallback;
		unsigned i = 0;
		while (i + 1 < count && keys[i + 1].mTime <= ticks)
			++i;
		if (i + 1 >= count)
			return keys[count - 1].mValue;
		const double f = (ticks - keys[i].mTime) / std::max(keys[i + 1].mTime - keys[i].mTime, 1e-9);
		return keys[i].mValue + (keys[i + 1].mValue - keys[i].mValue) * (float)f;
	};
	std::map<std::string, aiMatrix4x4> world;
	std::function<void(const aiNode *, const aiMatrix4x4 &)> walk = [&](const aiNode *node, const aiMatrix4x4 &parent)
	{
		aiMatrix4x4 local = node->mTransformation;
		auto it = channels.find(node->mName.C_Str());
		if (it != channels.end())
		{
			const aiNodeAnim *ch = it->second;
			aiVector3D scale, position;
			aiQuaternion rotation;
			node->mTransformation.Decompose(scale, rotation, position);
			position = lerpKeys(ch->mPositionKeys, ch->mNumPositionKeys, position);
			scale = lerpKeys(ch->mScalingKeys, ch->mNumScalingKeys, scale);
			if (ch->mNumRotationKeys)
			{
				unsigned i = 0;
				while (i + 1 < ch->mNumRotationKeys && ch->mRotationKeys[i + 1].mTime <= ticks)
					++i;
				rotation = ch->mRotationKeys[i].mValue;
				if (i + 1 < ch->mNumRotationKeys)
				{
					const double f = (ticks - ch->mRotationKeys[i].mTime) / std::max(ch->mRotationKeys[i + 1].mTime - ch->mRotationKeys[i].mTime, 1e-9);
					aiQuaternion::Interpolate(rotation, ch->mRotationKeys[i].mValue, ch->mRotationKeys[i + 1].mValue, (float)f);
				}
			}
			local = aiMatrix4x4(scale, rotation, position);
		}
		const aiMatrix4x4 mine = parent * local;
		world[node->mName.C_Str()] = mine;
		for (unsigned c = 0; c < node->mNumChildren; ++c)
			walk(node->mChildren[c], mine);
	};
	walk(scene->mRootNode, aiMatrix4x4());
	return world;
}

bool LoadPart(const RenderPart_t &source, const std::map<std::string, aiMatrix4x4> *pose, Part_t &part, std::string &error)
{
	Assimp::Importer importer;
	const aiScene *scene = importer.ReadFile(source.m_Mesh, aiProcess_Triangulate);
	if (!scene)
	{
		error = source.m_Mesh + ": " + importer.GetErrorString();
		return false;
	}
	// Bones of the part that the animation does not have (an item's own bones) follow their
	// nearest ancestor that it has, keeping their bind offset from it.
	std::map<std::string, aiMatrix4x4> bindWorld;
	std::map<std::string, std::string> parentOf;
	std::function<void(const aiNode *, const aiMatrix4x4 &)> walk = [&](const aiNode *node, const aiMatrix4x4 &parent)
	{
		const aiMatrix4x4 world = parent * node->mTransformation;
		bindWorld[node->mName.C_Str()] = world;
		for (unsigned c = 0; c < node->mNumChildren; ++c)
		{
			parentOf[node->mChildren[c]->mName.C_Str()] = node->mName.C_Str();
			walk(node->mChildren[c], world);
		}
	};
	walk(scene->mRootNode, aiMatrix4x4());
	auto posedWorld = [&](const std::string &bone, aiMatrix4x4 &out)
	{
		for (std::string at = bone; !at.empty(); at = parentOf.count(at) ? parentOf[at] : std::string())
		{
			auto it = pose->find(at);
			if (it == pose->end())
				continue;
			aiMatrix4x4 inverse = bindWorld[at];
			inverse.Inverse();
			out = it->second * inverse * bindWorld[bone];
			return true;
		}
		return false;
	};
	for (unsigned m = 0; m < scene->mNumMeshes; ++m)
	{
		const aiMesh *mesh = scene->mMeshes[m];
		const unsigned base = (unsigned)part.vertices.size();
		std::vector<aiMatrix4x4> skin(mesh->mNumVertices, aiMatrix4x4());
		std::vector<float> skinned(mesh->mNumVertices, 0.0f);
		if (pose && mesh->mNumBones)
		{
			for (unsigned i = 0; i < mesh->mNumVertices; ++i)
				skin[i] = aiMatrix4x4(aiVector3D(0, 0, 0), aiQuaternion(), aiVector3D(0, 0, 0));
			for (unsigned b = 0; b < mesh->mNumBones; ++b)
			{
				const aiBone *bone = mesh->mBones[b];
				aiMatrix4x4 world;
				// A bone with no animated ancestor at all stays at its bind place.
				const aiMatrix4x4 m4 = posedWorld(bone->mName.C_Str(), world) ? world * bone->mOffsetMatrix : aiMatrix4x4();
				for (unsigned w = 0; w < bone->mNumWeights; ++w)
				{
					const aiVertexWeight &vw = bone->mWeights[w];
					aiMatrix4x4 &s = skin[vw.mVertexId];
					for (int r = 0; r < 4; ++r)
						for (int c = 0; c < 4; ++c)
							s[r][c] += m4[r][c] * vw.mWeight;
					skinned[vw.mVertexId] += vw.mWeight;
				}
			}
		}
		for (unsigned i = 0; i < mesh->mNumVertices; ++i)
		{
			Vertex_t v;
			v.position = mesh->mVertices[i];
			v.normal = mesh->mNormals ? mesh->mNormals[i] : aiVector3D(0, 0, 1);
			if (pose && mesh->mNumBones && skinned[i] > 0.0f)
			{
				v.position = skin[i] * v.position;
				aiMatrix3x3 rotation(skin[i]);
				v.normal = (rotation * v.normal).Normalize();
			}
			if (mesh->HasTextureCoords(0))
			{
				v.u = mesh->mTextureCoords[0][i].x;
				v.v = mesh->mTextureCoords[0][i].y;
			}
			part.vertices.push_back(v);
		}
		for (unsigned f = 0; f < mesh->mNumFaces; ++f)
		{
			if (mesh->mFaces[f].mNumIndices != 3)
				continue;
			for (int k = 0; k < 3; ++k)
				part.indices.push_back(base + mesh->mFaces[f].mIndices[k]);
		}
	}
	if (!source.m_Texture.empty())
	{
		part.texture = QImage(QString::fromStdString(source.m_Texture)).convertToFormat(QImage::Format_RGB32);
		if (part.texture.isNull())
		{
			error = source.m_Texture + ": cannot be read";
			return false;
		}
	}
	return true;
}
} // namespace

QImage RenderParts(const std::vector<RenderPart_t> &parts, const RenderView_t &view, std::string &error)
{
	// The frame comes from the bind pose, so that every time of an animation is framed alike.
	std::vector<Part_t> bind(parts.size()), posed(parts.size());
	std::map<std::string, aiMatrix4x4> pose;
	Assimp::Importer animImporter;
	if (!view.m_Animation.empty())
	{
		animImporter.SetPropertyBool(AI_CONFIG_IMPORT_FBX_OPTIMIZE_EMPTY_ANIMATION_CURVES, false);
		const aiScene *anim = animImporter.ReadFile(view.m_Animation, 0);
		if (!anim)
		{
			error = view.m_Animation + ": " + animImporter.GetErrorString();
			return QImage();
		}
		pose = PoseAt(anim, view.m_flTime);
	}
	for (size_t i = 0; i < parts.size(); ++i)
	{
		if (!LoadPart(parts[i], nullptr, bind[i], error))
			return QImage();
		if (!view.m_Animation.empty() && !LoadPart(parts[i], &pose, posed[i], error))
			return QImage();
	}
	const std::vector<Part_t> &drawn = view.m_Animation.empty() ? bind : posed;

	aiVector3D lo(1e30f, 1e30f, 1e30f), hi(-1e30f, -1e30f, -1e30f);
	for (const Part_t &part : bind)
	{
		for (const Vertex_t &v : part.vertices)
		{
			lo = aiVector3D(std::min(lo.x, v.position.x), std::min(lo.y, v.position.y), std::min(lo.z, v.position.z));
			hi = aiVector3D(std::max(hi.x, v.position.x), std::max(hi.y, v.position.y), std::max(hi.z, v.position.z));
		}
	}
	if (lo.x > hi.x)
	{
		error = "nothing to draw";
		return QImage();
	}
	const aiVector3D centre = (lo + hi) * 0.5f;
	const double extent = std::max({ hi.x - lo.x, hi.y - lo.y, hi.z - lo.z }) * 1.1;
	const double yaw = view.m_flYaw * M_PI / 180.0, pitch = view.m_flPitch * M_PI / 180.0;
	// View space: x to the right, y into the screen, z up.
	auto toView = [&](const aiVector3D &p)
	{
		const double x = p.x, y = p.y;
		const double rx = x * std::cos(yaw) - y * std::sin(yaw), ry = x * std::sin(yaw) + y * std::cos(yaw);
		const double rz = p.z;
		return aiVector3D((float)rx, (float)(ry * std::cos(pitch) - rz * std::sin(pitch)), (float)(ry * std::sin(pitch) + rz * std::cos(pitch)));
	};
	const int w = view.m_nWidth, h = view.m_nHeight;
	const double scale = std::min(w, h) / extent;
	const aiVector3D c = toView(centre);
	QImage image(w, h, QImage::Format_ARGB32);
	image.fill(Qt::transparent);
	std::vector<float> depth((size_t)w * h, std::numeric_limits<float>::max());
	const aiVector3D light = aiVector3D(-0.45f, -1.0f, 0.7f).Normalize(); // toward the light, in view space
	for (const Part_t &part : drawn)
	{
		std::vector<aiVector3D> screen(part.vertices.size()), normals(part.vertices.size());
		for (size_t i = 0; i < part.vertices.size(); ++i)
		{
			const aiVector3D p = toView(part.vertices[i].position) - c;
			screen[i] = aiVector3D((float)(w / 2.0 + p.x * scale), (float)(h / 2.0 - p.z * scale), p.y);
			normals[i] = toView(part.vertices[i].normal);
		}
		for (size_t t = 0; t + 2 < part.indices.size(); t += 3)
		{
			const unsigned ia = part.indices[t], ib = part.indices[t + 1], ic = part.indices[t + 2];
			const aiVector3D &a = screen[ia], &b = screen[ib], &cc = screen[ic];
			// Faces turned away are not drawn: a face wound the wrong way shows as a hole.
			const double area = (b.x - a.x) * (cc.y - a.y) - (b.y - a.y) * (cc.x - a.x);
			if (area >= 0.0)
				continue;
			const int x0 = std::max(0, (int)std::floor(std::min({ a.x, b.x, cc.x }))), x1 = std::min(w - 1, (int)std::ceil(std::max({ a.x, b.x, cc.x })));
			const int y0 = std::max(0, (int)std::floor(std::min({ a.y, b.y, cc.y }))), y1 = std::min(h - 1, (int)std::ceil(std::max({ a.y, b.y, cc.y })));
			for (int y = y0; y <= y1; ++y)
			{
				for (int x = x0; x <= x1; ++x)
				{
					const double px = x + 0.5, py = y + 0.5;
					const double l0 = ((b.x - px) * (cc.y - py) - (b.y - py) * (cc.x - px)) / area;
					const double l1 = ((cc.x - px) * (a.y - py) - (cc.y - py) * (a.x - px)) / area;
					const double l2 = 1.0 - l0 - l1;
					if (l0 < 0 || l1 < 0 || l2 < 0)
						continue;
					const float z = (float)(l0 * a.z + l1 * b.z + l2 * cc.z);
					float &d = depth[(size_t)y * w + x];
					if (z >= d)
						continue;
					d = z;
					aiVector3D n = normals[ia] * (float)l0 + normals[ib] * (float)l1 + normals[ic] * (float)l2;
					n.Normalize();
					const double shade = 0.3 + 0.7 * std::max(0.0, (double)(n * light));
					QColor colour(160, 160, 160);
					if (!part.texture.isNull())
					{
						const double u = l0 * part.vertices[ia].u + l1 * part.vertices[ib].u + l2 * part.vertices[ic].u;
						const double v = l0 * part.vertices[ia].v + l1 * part.vertices[ib].v + l2 * part.vertices[ic].v;
						const int tx = std::clamp((int)(u * part.texture.width()), 0, part.texture.width() - 1);
						const int ty = std::clamp((int)((1.0 - v) * part.texture.height()), 0, part.texture.height() - 1);
						colour = QColor(part.texture.pixel(tx, ty));
					}
					image.setPixel(x, y,
						qRgba(std::min(255, (int)(colour.red() * shade)), std::min(255, (int)(colour.green() * shade)), std::min(255, (int)(colour.blue() * shade)), 255));
				}
			}
		}
	}
	return image;
}

Coverage_t MeasureCoverage(const QImage &image)
{
	Coverage_t out;
	int filled = 0, x0 = image.width(), x1 = -1, y0 = image.height(), y1 = -1;
	for (int y = 0; y < image.height(); ++y)
	{
		for (int x = 0; x < image.width(); ++x)
		{
			if (qAlpha(image.pixel(x, y)) == 0)
				continue;
			++filled;
			x0 = std::min(x0, x);
			x1 = std::max(x1, x);
			y0 = std::min(y0, y);
			y1 = std::max(y1, y);
		}
	}
	if (filled)
	{
		out.m_flFilled = double(filled) / (image.width() * image.height());
		out.m_flAspect = double(y1 - y0 + 1) / (x1 - x0 + 1);
	}
	return out;
}

double DifferentPixels(const QImage &a, const QImage &b)
{
	if (a.size() != b.size() || a.isNull())
		return 1.0;
	int differ = 0;
	for (int y = 0; y < a.height(); ++y)
	{
		for (int x = 0; x < a.width(); ++x)
			differ += a.pixel(x, y) != b.pixel(x, y) ? 1 : 0;
	}
	return double(differ) / (a.width() * a.height());
}
} // namespace artrender
