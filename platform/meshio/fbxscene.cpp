#include "meshio/fbxscene.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <unordered_map>

#include "core/strtools.h"

namespace
{
enum
{
	MAX_MODEL_DEPTH = 1024, // longest parent chain followed; deeper ones are cycles or damage
};

struct FbxObject_t
{
	const FbxNode_t *pNode = nullptr;
	std::string_view className; // the node's name: "Geometry", "Model", "Deformer", "Material"...
	std::string_view name;		// the object's name without its class
	std::string_view subclass;	// "Mesh", "LimbNode", "Skin", "Cluster"...
	std::vector<int> parents;	// objects this one is connected to ("OO"), in file order
	std::vector<int> children;	// objects connected to this one, in file order
	int nModelParent = -1;		// the first parent that is a model
	int nJoint = -1;			// index in the scene's joints when it is one
	bool bGlobalDone = false;
	bool bGlobalBusy = false;
	Matrix4_t local;
	Matrix4_t global;
};

struct Vec3d_t
{
	double v[3] = { 0, 0, 0 };
};

// An object's name without its class: "Class::Name" (ASCII) or "Name\0\1Class" (binary).
std::string_view ObjectName(std::string_view full)
{
	const size_t binary = full.find(std::string_view("\0\x01", 2));
	if (binary != std::string_view::npos)
		return full.substr(0, binary);
	const size_t colons = full.find("::");
	if (colons != std::string_view::npos)
		return full.substr(colons + 2);
	return full;
}

CUtlString Quote(std::string_view text)
{
	return "\"" + CUtlString(text) + "\"";
}

class CFbxSceneReader
{
public:
	CFbxSceneReader(const CFbxDocument &document, SourceScene_t &scene, CUtlString &error) : m_Doc(document), m_Scene(scene), m_Error(error) {}
	bool Read();

private:
	bool CollectObjects();
	bool CollectConnections();
	void ReadGlobalSettings();
	void FindTemplates();
	bool ReadSkeleton();
	bool ReadGeometry(int object);
	bool ReadPolygons(const FbxNode_t *geometry, CSourceMesh &mesh, std::vector<int32> &cornerPolygon);
	// A layer element resolved per corner into `out` (Vector or Vector2D per corner); left
	// empty when the geometry has no such layer.
	template <typename V>
	bool ReadLayer(const FbxNode_t *geometry, const char *layerName, const char *valuesName, const char *indexName, const char *indexName2,
		const CSourceMesh &mesh, const std::vector<int32> &cornerPolygon, std::vector<V> &out);
	bool ReadMaterials(const FbxNode_t *geometry, int modelObject, CSourceMesh &mesh);
	bool ReadSkin(int geometryObject, CSourceMesh &mesh);
	bool ReadMatrix(const FbxNode_t *node, const char *childName, Matrix4_t &out, bool &bFound);
	// The first property of a child node as a string (empty when absent).
	std::string_view ChildString(const FbxNode_t *node, std::string_view name) const;

	// Node properties ("Properties70" P records, or "Properties60" Property records), with the
	// model class template as the fallback.
	const FbxNode_t *FindProperty(const FbxNode_t *object, std::string_view name, int &firstValue) const;
	Vec3d_t PropertyVector(const FbxNode_t *object, std::string_view name, const Vec3d_t &fallback) const;
	int64 PropertyInt(const FbxNode_t *object, std::string_view name, int64 fallback) const;
	Matrix4_t LocalMatrix(const FbxNode_t *object) const;
	Matrix4_t GeometricMatrix(const FbxNode_t *object) const;
	const Matrix4_t &GlobalMatrix(int object);

	bool Fail(const FbxNode_t *node, const char *fmt, ...) FMTFUNCTION(3, 4);

	const CFbxDocument &m_Doc;
	SourceScene_t &m_Scene;
	CUtlString &m_Error;
	std::vector<FbxObject_t> m_Objects;
	std::unordered_map<int64, int> m_ById;
	std::unordered_map<std::string_view, int> m_ByName;
	const FbxNode_t *m_pModelTemplate = nullptr;
	bool m_bNamedObjects = false; // FBX 6: objects are known by name
};

bool CFbxSceneReader::Fail(const FbxNode_t *node, const char *fmt, ...)
{
	va_list args;
	va_start(args, fmt);
	m_Error = (node ? m_Doc.Where(node->nOffset) : m_Doc.FileName()) + ": " + V_FormatV(fmt, args);
	va_end(args);
	return false;
}

bool CFbxSceneReader::Read()
{
	m_Scene = SourceScene_t();
	m_Scene.format = m_Doc.IsBinary() ? "fbx-binary" : "fbx-ascii";
	m_Scene.nFormatVersion = (int)m_Doc.Version();
	if (!m_Doc.FindChild(nullptr, "Objects"))
		return Fail(nullptr, "no \"Objects\" node: not an FBX scene");
	ReadGlobalSettings();
	FindTemplates();
	if (!CollectObjects() || !CollectConnections())
		return false;
	if (!ReadSkeleton())
		return false;
	for (int i = 0; i < (int)m_Objects.size(); ++i)
	{
		const FbxObject_t &object = m_Objects[i];
		const bool bGeometry = object.className == "Geometry" && object.subclass == "Mesh";
		// FBX 6 keeps the geometry inside the model.
		const bool bModelMesh = object.className == "Model" && m_Doc.FindChild(object.pNode, "Vertices") != nullptr;
		if ((bGeometry || bModelMesh) && !ReadGeometry(i))
			return false;
	}
	if (!m_Scene.Validate(m_Error))
		return Fail(nullptr, "%s", m_Error.c_str());
	return true;
}

std::string_view CFbxSceneReader::ChildString(const FbxNode_t *node, std::string_view name) const
{
	const FbxNode_t *child = m_Doc.FindChild(node, name);
	return child ? CFbxDocument::PropertyString(m_Doc.Property(child, 0)) : std::string_view();
}

void CFbxSceneReader::ReadGlobalSettings()
{
	const FbxNode_t *settings = m_Doc.FindChild(nullptr, "GlobalSettings");
	if (!settings)
		return;
	const int64 up = PropertyInt(settings, "UpAxis", 1);
	m_Scene.upAxis = (up == 0) ? 'X' : (up == 2 ? 'Z' : 'Y');
	int first = 0;
	if (const FbxNode_t *scale = FindProperty(settings, "UnitScaleFactor", first))
	{
		double value = 1.0;
		if (CFbxDocument::PropertyDouble(m_Doc.Property(scale, first), value) && value > 0.0 && std::isfinite(value))
			m_Scene.flUnitScale = value;
	}
}

void CFbxSceneReader::FindTemplates()
{
	const FbxNode_t *definitions = m_Doc.FindChild(nullptr, "Definitions");
	if (!definitions)
		return;
	for (const FbxNode_t *type = m_Doc.FindChild(definitions, "ObjectType"); type; type = m_Doc.FindNextNamed(type, "ObjectType"))
	{
		if (CFbxDocument::PropertyString(m_Doc.Property(type, 0)) != "Model")
			continue;
		for (const FbxNode_t *node = m_Doc.FindChild(type, "PropertyTemplate"); node; node = m_Doc.FindNextNamed(node, "PropertyTemplate"))
		{
			if (CFbxDocument::PropertyString(m_Doc.Property(node, 0)) == "FbxNode")
				m_pModelTemplate = node;
		}
	}
}

bool CFbxSceneReader::CollectObjects()
{
	const FbxNode_t *objects = m_Doc.FindChild(nullptr, "Objects");
	for (const FbxNode_t *node = m_Doc.FirstChild(objects); node; node = m_Doc.NextSibling(node))
	{
		const FbxProperty_t *first = m_Doc.Property(node, 0);
		if (!first)
			continue;
		FbxObject_t object;
		object.pNode = node;
		object.className = node->name;
		const int index = (int)m_Objects.size();
		if (first->IsNumber())
		{
			// FBX 7: id, "Class::Name", "Subclass"
			const std::string_view full = CFbxDocument::PropertyString(m_Doc.Property(node, 1));
			object.name = ObjectName(full);
			object.subclass = CFbxDocument::PropertyString(m_Doc.Property(node, 2));
			m_ById.emplace(first->nInt, index);
		}
		else if (first->IsString())
		{
			// FBX 6: "Class::Name", "Subclass"
			object.name = ObjectName(first->data);
			object.subclass = CFbxDocument::PropertyString(m_Doc.Property(node, 1));
			m_ByName.emplace(first->data, index);
			m_bNamedObjects = true;
		}
		else
			continue;
		m_Objects.push_back(object);
	}
	return true;
}

bool CFbxSceneReader::CollectConnections()
{
	const FbxNode_t *connections = m_Doc.FindChild(nullptr, "Connections");
	if (!connections)
		return true; // a file of loose objects: nothing is connected
	for (const FbxNode_t *node = m_Doc.FirstChild(connections); node; node = m_Doc.NextSibling(node))
	{
		if (node->name != "C" && node->name != "Connect")
			continue;
		const std::string_view kind = CFbxDocument::PropertyString(m_Doc.Property(node, 0));
		if (kind != "OO")
			continue; // property connections (textures, curves) do not shape the scene
		const FbxProperty_t *child = m_Doc.Property(node, 1);
		const FbxProperty_t *parent = m_Doc.Property(node, 2);
		if (!child || !parent)
			return Fail(node, "a connection names fewer than two objects");
		auto find = [&](const FbxProperty_t *property) -> int {
			if (property->IsNumber())
			{
				const auto it = m_ById.find(property->nInt);
				return it == m_ById.end() ? -1 : it->second;
			}
			const auto it = m_ByName.find(property->data);
			return it == m_ByName.end() ? -1 : it->second;
		};
		const int from = find(child), to = find(parent);
		if (from < 0 || to < 0 || from == to)
			continue; // the scene root (0 or "Model::Scene") or an object the file does not have
		m_Objects[from].parents.push_back(to);
		m_Objects[to].children.push_back(from);
		if (m_Objects[from].nModelParent < 0 && m_Objects[from].className == "Model" && m_Objects[to].className == "Model")
			m_Objects[from].nModelParent = to;
	}
	return true;
}

const FbxNode_t *CFbxSceneReader::FindProperty(const FbxNode_t *object, std::string_view name, int &firstValue) const
{
	for (int pass = 0; pass < 2; ++pass)
	{
		const FbxNode_t *owner = pass == 0 ? object : m_pModelTemplate;
		if (!owner)
			continue;
		for (const char *block : { "Properties70", "Properties60" })
		{
			const FbxNode_t *properties = m_Doc.FindChild(owner, block);
			if (!properties)
				continue;
			const bool b70 = block[10] == '7';
			for (const FbxNode_t *p = m_Doc.FirstChild(properties); p; p = m_Doc.NextSibling(p))
			{
				if (p->name != (b70 ? "P" : "Property"))
					continue;
				if (CFbxDocument::PropertyString(m_Doc.Property(p, 0)) == name)
				{
					firstValue = b70 ? 4 : 3;
					return p;
				}
			}
		}
		if (object == m_pModelTemplate)
			break;
	}
	return nullptr;
}

Vec3d_t CFbxSceneReader::PropertyVector(const FbxNode_t *object, std::string_view name, const Vec3d_t &fallback) const
{
	int first = 0;
	const FbxNode_t *p = FindProperty(object, name, first);
	if (!p)
		return fallback;
	Vec3d_t out;
	for (int i = 0; i < 3; ++i)
	{
		double value = 0.0;
		if (!CFbxDocument::PropertyDouble(m_Doc.Property(p, first + i), value) || !std::isfinite(value))
			return fallback;
		out.v[i] = value;
	}
	return out;
}

int64 CFbxSceneReader::PropertyInt(const FbxNode_t *object, std::string_view name, int64 fallback) const
{
	int first = 0;
	const FbxNode_t *p = FindProperty(object, name, first);
	int64 value = fallback;
	if (p && CFbxDocument::PropertyInt(m_Doc.Property(p, first), value))
		return value;
	return fallback;
}

Matrix4_t CFbxSceneReader::LocalMatrix(const FbxNode_t *object) const
{
	// T * Roff * Rp * Rpre * R * Rpost^-1 * Rp^-1 * Soff * Sp * S * Sp^-1
	const Vec3d_t zero, one{ { 1, 1, 1 } };
	const Vec3d_t t = PropertyVector(object, "Lcl Translation", zero);
	const Vec3d_t r = PropertyVector(object, "Lcl Rotation", zero);
	const Vec3d_t s = PropertyVector(object, "Lcl Scaling", one);
	const Vec3d_t rOffset = PropertyVector(object, "RotationOffset", zero);
	const Vec3d_t rPivot = PropertyVector(object, "RotationPivot", zero);
	const Vec3d_t sOffset = PropertyVector(object, "ScalingOffset", zero);
	const Vec3d_t sPivot = PropertyVector(object, "ScalingPivot", zero);
	const Vec3d_t pre = PropertyVector(object, "PreRotation", zero);
	const Vec3d_t post = PropertyVector(object, "PostRotation", zero);
	int64 order = PropertyInt(object, "RotationOrder", 0);
	if (order < 0 || order > EULER_ZYX)
		order = 0; // spheric XYZ and unknown orders read as XYZ

	auto euler = [](const Vec3d_t &angles, EulerOrder_t eulerOrder) {
		return MatrixFromEulerDegrees(Vector((float)angles.v[0], (float)angles.v[1], (float)angles.v[2]), eulerOrder);
	};
	auto translate = [](const Vec3d_t &v, double sign) { return MatrixTranslation(sign * v.v[0], sign * v.v[1], sign * v.v[2]); };
	Matrix4_t postInverse;
	MatrixInverse(euler(post, EULER_XYZ), postInverse);

	Matrix4_t m = translate(t, 1);
	m = MatrixMultiply(m, translate(rOffset, 1));
	m = MatrixMultiply(m, translate(rPivot, 1));
	m = MatrixMultiply(m, euler(pre, EULER_XYZ));
	m = MatrixMultiply(m, euler(r, (EulerOrder_t)order));
	m = MatrixMultiply(m, postInverse);
	m = MatrixMultiply(m, translate(rPivot, -1));
	m = MatrixMultiply(m, translate(sOffset, 1));
	m = MatrixMultiply(m, translate(sPivot, 1));
	m = MatrixMultiply(m, MatrixScale(s.v[0], s.v[1], s.v[2]));
	m = MatrixMultiply(m, translate(sPivot, -1));
	return m;
}

Matrix4_t CFbxSceneReader::GeometricMatrix(const FbxNode_t *object) const
{
	const Vec3d_t zero, one{ { 1, 1, 1 } };
	const Vec3d_t t = PropertyVector(object, "GeometricTranslation", zero);
	const Vec3d_t r = PropertyVector(object, "GeometricRotation", zero);
	const Vec3d_t s = PropertyVector(object, "GeometricScaling", one);
	Matrix4_t m = MatrixTranslation(t.v[0], t.v[1], t.v[2]);
	m = MatrixMultiply(m, MatrixFromEulerDegrees(Vector((float)r.v[0], (float)r.v[1], (float)r.v[2]), EULER_XYZ));
	return MatrixMultiply(m, MatrixScale(s.v[0], s.v[1], s.v[2]));
}

const Matrix4_t &CFbxSceneReader::GlobalMatrix(int index)
{
	// Walk up to the first model whose global matrix is known (or the root), then down again.
	std::vector<int> chain;
	int at = index;
	while (at >= 0 && !m_Objects[at].bGlobalDone && !m_Objects[at].bGlobalBusy && (int)chain.size() < MAX_MODEL_DEPTH)
	{
		m_Objects[at].bGlobalBusy = true;
		chain.push_back(at);
		at = m_Objects[at].nModelParent;
	}
	Matrix4_t parent = (at >= 0 && m_Objects[at].bGlobalDone) ? m_Objects[at].global : Matrix4_t();
	for (auto it = chain.rbegin(); it != chain.rend(); ++it)
	{
		FbxObject_t &object = m_Objects[*it];
		object.local = LocalMatrix(object.pNode);
		object.global = MatrixMultiply(parent, object.local);
		object.bGlobalDone = true;
		object.bGlobalBusy = false;
		parent = object.global;
	}
	return m_Objects[index].global;
}

bool CFbxSceneReader::ReadMatrix(const FbxNode_t *node, const char *childName, Matrix4_t &out, bool &bFound)
{
	bFound = false;
	const FbxNode_t *child = m_Doc.FindChild(node, childName);
	if (!child)
		return true;
	std::vector<double> values;
	if (!m_Doc.ReadDoubles(child, values, m_Error))
		return false;
	if (values.size() != 16)
		return Fail(child, "\"%s\" holds %zu numbers, a matrix needs 16", childName, values.size());
	// FBX stores matrices column after column.
	for (int c = 0; c < 4; ++c)
	{
		for (int r = 0; r < 4; ++r)
			out.m[r][c] = values[c * 4 + r];
	}
	bFound = true;
	return true;
}

bool CFbxSceneReader::ReadSkeleton()
{
	// Joints: limb nodes and every model that a cluster binds.
	std::vector<bool> isJoint(m_Objects.size(), false);
	for (size_t i = 0; i < m_Objects.size(); ++i)
	{
		const FbxObject_t &object = m_Objects[i];
		if (object.className != "Model")
			continue;
		if (object.subclass == "LimbNode" || object.subclass == "Limb" || object.subclass == "Root")
			isJoint[i] = true;
	}
	for (const FbxObject_t &object : m_Objects)
	{
		if (object.className != "Deformer" || object.subclass != "Cluster")
			continue;
		for (int child : object.children)
		{
			if (m_Objects[child].className == "Model")
				isJoint[child] = true;
		}
	}
	// Parents before children: depth first over the model tree from its roots, in file order.
	std::vector<std::vector<int>> modelChildren(m_Objects.size());
	std::vector<int> roots;
	for (size_t i = 0; i < m_Objects.size(); ++i)
	{
		if (m_Objects[i].className != "Model")
			continue;
		if (m_Objects[i].nModelParent >= 0)
			modelChildren[m_Objects[i].nModelParent].push_back((int)i);
		else
			roots.push_back((int)i);
	}
	std::vector<bool> visited(m_Objects.size(), false);
	std::vector<std::pair<int, int>> stack; // object, nearest joint above it
	auto visitFrom = [&](int root) {
		stack.emplace_back(root, -1);
		while (!stack.empty())
		{
			const auto [index, jointAbove] = stack.back();
			stack.pop_back();
			if (visited[index])
				continue;
			visited[index] = true;
			int below = jointAbove;
			if (isJoint[index])
			{
				SourceJoint_t joint;
				joint.name = CUtlString(m_Objects[index].name);
				joint.nParent = jointAbove;
				const Matrix4_t &global = GlobalMatrix(index);
				joint.bindLocal = TransformFromMatrix(m_Objects[index].local);
				MatrixInverse(global, joint.inverseBind);
				m_Objects[index].nJoint = (int)m_Scene.joints.size();
				below = m_Objects[index].nJoint;
				m_Scene.joints.push_back(joint);
			}
			const std::vector<int> &children = modelChildren[index];
			for (auto it = children.rbegin(); it != children.rend(); ++it)
				stack.emplace_back(*it, below);
		}
	};
	for (int root : roots)
		visitFrom(root);
	// Models on a cycle of parents have no root; they start trees of their own.
	for (size_t i = 0; i < m_Objects.size(); ++i)
	{
		if (m_Objects[i].className == "Model" && !visited[i])
			visitFrom((int)i);
	}
	return true;
}

bool CFbxSceneReader::ReadGeometry(int objectIndex)
{
	const FbxObject_t &object = m_Objects[objectIndex];
	const FbxNode_t *node = object.pNode;
	int model = -1;
	if (object.className == "Model")
		model = objectIndex;
	else
	{
		for (int parent : object.parents)
		{
			if (m_Objects[parent].className == "Model")
			{
				model = parent;
				break;
			}
		}
	}

	CSourceMesh mesh;
	mesh.m_Name = CUtlString(model >= 0 ? m_Objects[model].name : object.name);
	if (mesh.m_Name.empty())
		mesh.m_Name = CUtlString(object.name);

	const FbxNode_t *vertices = m_Doc.FindChild(node, "Vertices");
	std::vector<double> values;
	if (vertices && !m_Doc.ReadDoubles(vertices, values, m_Error))
		return false;
	if (values.size() % 3 != 0)
		return Fail(vertices, "geometry %s: %zu vertex coordinates are not a whole number of points", Quote(mesh.m_Name).c_str(), values.size());
	mesh.m_Positions.resize(values.size() / 3);
	for (size_t i = 0; i < mesh.m_Positions.size(); ++i)
		mesh.m_Positions[i] = Vector((float)values[i * 3], (float)values[i * 3 + 1], (float)values[i * 3 + 2]);

	std::vector<int32> cornerPolygon;
	if (!ReadPolygons(node, mesh, cornerPolygon))
		return false;

	if (!ReadLayer(node, "LayerElementNormal", "Normals", "NormalsIndex", "NormalIndex", mesh, cornerPolygon, mesh.m_CornerNormals))
		return false;
	if (!ReadLayer(node, "LayerElementUV", "UV", "UVIndex", "UVIndex", mesh, cornerPolygon, mesh.m_CornerUVs))
		return false;
	if (!ReadMaterials(node, model, mesh))
		return false;
	if (!ReadSkin(objectIndex, mesh))
		return false;
	// A geometry that sits under a model takes the model's placement; FBX 6 meshes are their model.
	if (model >= 0)
	{
		mesh.m_MeshToModel = MatrixMultiply(GlobalMatrix(model), GeometricMatrix(m_Objects[model].pNode));
		for (int at = model, depth = 0; at >= 0 && depth < MAX_MODEL_DEPTH; at = m_Objects[at].nModelParent, ++depth)
		{
			if (m_Objects[at].nJoint >= 0)
			{
				mesh.m_nParentJoint = m_Objects[at].nJoint;
				break;
			}
		}
	}
	m_Scene.meshes.push_back(std::move(mesh));
	return true;
}

bool CFbxSceneReader::ReadPolygons(const FbxNode_t *geometry, CSourceMesh &mesh, std::vector<int32> &cornerPolygon)
{
	const FbxNode_t *node = m_Doc.FindChild(geometry, "PolygonVertexIndex");
	if (!node)
		return true; // points only
	std::vector<int32> indices;
	if (!m_Doc.ReadInts(node, indices, m_Error))
		return false;
	const int32 positions = mesh.PositionCount();
	mesh.m_CornerPosition.resize(indices.size());
	cornerPolygon.resize(indices.size());
	mesh.m_PolygonStart.clear();
	mesh.m_PolygonStart.push_back(0);
	int32 polygon = 0;
	for (size_t c = 0; c < indices.size(); ++c)
	{
		int32 index = indices[c];
		const bool bLast = index < 0;
		if (bLast)
			index = ~index;
		if (index >= positions)
			return Fail(node, "geometry %s: corner %zu names control point %d of %d", Quote(mesh.m_Name).c_str(), c, index, positions);
		mesh.m_CornerPosition[c] = index;
		cornerPolygon[c] = polygon;
		if (bLast)
		{
			mesh.m_PolygonStart.push_back((int32)c + 1);
			++polygon;
		}
	}
	if (mesh.m_PolygonStart.back() != (int32)indices.size())
		return Fail(node, "geometry %s: the last polygon is not closed (its last index is not negative)", Quote(mesh.m_Name).c_str());
	if (polygon == 0)
		mesh.m_PolygonStart.clear();
	mesh.m_PolygonMaterial.assign(polygon, -1);
	return true;
}

template <typename V>
bool CFbxSceneReader::ReadLayer(const FbxNode_t *geometry, const char *layerName, const char *valuesName, const char *indexName,
	const char *indexName2, const CSourceMesh &mesh, const std::vector<int32> &cornerPolygon, std::vector<V> &out)
{
	static_assert(sizeof(V) % sizeof(float) == 0);
	constexpr int components = (int)(sizeof(V) / sizeof(float));
	out.clear();
	// The layer element of index 0 (the first one when none says 0).
	const FbxNode_t *layer = m_Doc.FindChild(geometry, layerName);
	for (const FbxNode_t *other = layer; other; other = m_Doc.FindNextNamed(other, layerName))
	{
		int64 index = -1;
		if (CFbxDocument::PropertyInt(m_Doc.Property(other, 0), index) && index == 0)
		{
			layer = other;
			break;
		}
	}
	if (!layer)
		return true;
	const FbxNode_t *valuesNode = m_Doc.FindChild(layer, valuesName);
	if (!valuesNode)
		return true; // a layer without values carries nothing
	const std::string_view mapping = ChildString(layer, "MappingInformationType");
	const std::string_view reference = ChildString(layer, "ReferenceInformationType");
	const CUtlString what = V_Format("geometry %s, %s", Quote(mesh.m_Name).c_str(), layerName);

	std::vector<double> values;
	if (!m_Doc.ReadDoubles(valuesNode, values, m_Error))
		return false;
	const size_t valueCount = values.size() / components;
	bool bIndexed = false;
	std::vector<int32> indices;
	if (reference == "IndexToDirect" || reference == "Index")
	{
		const FbxNode_t *indexNode = m_Doc.FindChild(layer, indexName);
		if (!indexNode)
			indexNode = m_Doc.FindChild(layer, indexName2);
		if (!indexNode)
			return Fail(layer, "%s: \"%s\" mapping without \"%s\"", what.c_str(), CUtlString(reference).c_str(), indexName);
		if (!m_Doc.ReadInts(indexNode, indices, m_Error))
			return false;
		bIndexed = true;
	}
	else if (reference != "Direct")
		return Fail(layer, "%s: unknown reference type \"%s\"", what.c_str(), CUtlString(reference).c_str());

	enum
	{
		BY_CORNER,
		BY_CONTROL_POINT,
		BY_POLYGON,
		ALL_SAME
	} by;
	if (mapping == "ByPolygonVertex")
		by = BY_CORNER;
	else if (mapping == "ByVertice" || mapping == "ByVertex" || mapping == "ByControlPoint")
		by = BY_CONTROL_POINT;
	else if (mapping == "ByPolygon")
		by = BY_POLYGON;
	else if (mapping == "AllSame")
		by = ALL_SAME;
	else if (mapping == "ByEdge" || mapping == "NoMappingInformation" || mapping.empty())
		return true; // nothing per corner to take
	else
		return Fail(layer, "%s: unknown mapping \"%s\"", what.c_str(), CUtlString(mapping).c_str());

	const int corners = mesh.CornerCount();
	out.assign(corners, V());
	float *perCorner = (float *)out.data();
	const size_t slots = bIndexed ? indices.size() : valueCount;
	for (int c = 0; c < corners; ++c)
	{
		size_t slot = 0;
		switch (by)
		{
		case BY_CORNER:
			slot = c;
			break;
		case BY_CONTROL_POINT:
			slot = mesh.m_CornerPosition[c];
			break;
		case BY_POLYGON:
			slot = cornerPolygon[c];
			break;
		case ALL_SAME:
			slot = 0;
			break;
		}
		if (slot >= slots)
			return Fail(layer, "%s: %zu %s for the %s mapping, corner %d needs entry %zu", what.c_str(), slots, bIndexed ? "indices" : "values",
				CUtlString(mapping).c_str(), c, slot);
		int64 value = (int64)slot;
		if (bIndexed)
		{
			value = indices[slot];
			if (value == -1)
				continue; // no value for this corner: zeros
			if (value < 0 || (size_t)value >= valueCount)
				return Fail(layer, "%s: index %lld at entry %zu is outside its %zu values", what.c_str(), (long long)value, slot, valueCount);
		}
		for (int k = 0; k < components; ++k)
			perCorner[(size_t)c * components + k] = (float)values[(size_t)value * components + k];
	}
	return true;
}

bool CFbxSceneReader::ReadMaterials(const FbxNode_t *geometry, int model, CSourceMesh &mesh)
{
	if (model >= 0)
	{
		for (int child : m_Objects[model].children)
		{
			if (m_Objects[child].className == "Material")
				mesh.m_Materials.push_back(CUtlString(m_Objects[child].name));
		}
	}
	const int polygons = mesh.PolygonCount();
	const int32 fallback = mesh.m_Materials.empty() ? -1 : 0;
	mesh.m_PolygonMaterial.assign(polygons, fallback);
	const FbxNode_t *layer = m_Doc.FindChild(geometry, "LayerElementMaterial");
	if (!layer)
		return true;
	const FbxNode_t *valuesNode = m_Doc.FindChild(layer, "Materials");
	if (!valuesNode)
		return true;
	std::vector<int32> values;
	if (!m_Doc.ReadInts(valuesNode, values, m_Error))
		return false;
	const std::string_view mapping = ChildString(layer, "MappingInformationType");
	const int materials = (int)mesh.m_Materials.size();
	auto pick = [&](int32 value) { return (value >= 0 && value < materials) ? value : -1; };
	if (mapping == "AllSame")
	{
		if (!values.empty())
			std::fill(mesh.m_PolygonMaterial.begin(), mesh.m_PolygonMaterial.end(), pick(values[0]));
	}
	else if (mapping == "ByPolygon")
	{
		if ((int)values.size() < polygons)
			return Fail(layer, "geometry %s: %zu material indices for %d polygons", Quote(mesh.m_Name).c_str(), values.size(), polygons);
		for (int p = 0; p < polygons; ++p)
			mesh.m_PolygonMaterial[p] = pick(values[p]);
	}
	else if (!mapping.empty() && mapping != "NoMappingInformation")
		return Fail(layer, "geometry %s: materials cannot be mapped \"%s\"", Quote(mesh.m_Name).c_str(), CUtlString(mapping).c_str());
	return true;
}

bool CFbxSceneReader::ReadSkin(int geometryObject, CSourceMesh &mesh)
{
	const int positions = mesh.PositionCount();
	std::vector<std::vector<SkinWeight_t>> perPosition;
	bool bSkinned = false;
	for (int skin : m_Objects[geometryObject].children)
	{
		if (m_Objects[skin].className != "Deformer" || m_Objects[skin].subclass != "Skin")
			continue;
		for (int cluster : m_Objects[skin].children)
		{
			const FbxObject_t &clusterObject = m_Objects[cluster];
			if (clusterObject.className != "Deformer" || clusterObject.subclass != "Cluster")
				continue;
			int joint = -1;
			for (int child : clusterObject.children)
			{
				if (m_Objects[child].nJoint >= 0)
				{
					joint = m_Objects[child].nJoint;
					break;
				}
			}
			if (joint < 0)
				continue; // a cluster bound to no model moves nothing
			if (!bSkinned)
			{
				perPosition.resize(positions);
				bSkinned = true;
			}
			const FbxNode_t *node = clusterObject.pNode;
			std::vector<int32> indexes;
			std::vector<double> weights;
			const FbxNode_t *indexNode = m_Doc.FindChild(node, "Indexes");
			const FbxNode_t *weightNode = m_Doc.FindChild(node, "Weights");
			if (indexNode && !m_Doc.ReadInts(indexNode, indexes, m_Error))
				return false;
			if (weightNode && !m_Doc.ReadDoubles(weightNode, weights, m_Error))
				return false;
			if (indexes.size() != weights.size())
				return Fail(node, "cluster %s: %zu indexes and %zu weights", Quote(clusterObject.name).c_str(), indexes.size(), weights.size());
			for (size_t i = 0; i < indexes.size(); ++i)
			{
				if (indexes[i] < 0 || indexes[i] >= positions)
					return Fail(indexNode, "cluster %s: index %d is not one of the %d control points of %s", Quote(clusterObject.name).c_str(),
						indexes[i], positions, Quote(mesh.m_Name).c_str());
				perPosition[indexes[i]].push_back(SkinWeight_t{ joint, (float)weights[i] });
			}
			Matrix4_t transform, link;
			bool bTransform = false, bLink = false;
			// Both are read so that a damaged one is reported.
			if (!ReadMatrix(node, "Transform", transform, bTransform) || !ReadMatrix(node, "TransformLink", link, bLink))
				return false;
			SourceJoint_t &target = m_Scene.joints[joint];
			if (!target.bSkinned)
			{
				target.bSkinned = true;
				// The link is the joint's global matrix at bind time (the cluster's Transform,
				// the mesh's, does not enter the model-space inverse).
				Matrix4_t inverseLink;
				if (bLink && MatrixInverse(link, inverseLink))
					target.inverseBind = inverseLink;
			}
		}
	}
	if (!bSkinned)
		return true;
	mesh.m_WeightStart.resize(positions + 1);
	mesh.m_WeightStart[0] = 0;
	for (int p = 0; p < positions; ++p)
	{
		mesh.m_Weights.insert(mesh.m_Weights.end(), perPosition[p].begin(), perPosition[p].end());
		mesh.m_WeightStart[p + 1] = (int32)mesh.m_Weights.size();
	}
	return true;
}
} // namespace

bool LoadFbxScene(const CFbxDocument &document, SourceScene_t &scene, CUtlString &error)
{
	CFbxSceneReader reader(document, scene, error);
	return reader.Read();
}

bool LoadFbxSceneFile(const char *path, SourceScene_t &scene, CUtlString &error)
{
	CFbxDocument document;
	if (!document.LoadFile(path, error))
		return false;
	return LoadFbxScene(document, scene, error);
}
