// The topology findings of a model's mesh sources, drawn over the compiled model: border and
// non-manifold edges as red lines, the faces of a flipped pair tinted.
//
// The model document of a compiled model ("models/x.zmdl" under the content root) names its mesh
// sources; each is read on the tool's road (our own FBX reader, DMX through the data model) and
// checked on its own connectivity. A finding names source vertices and polygons; their
// positions, brought into the compiled model's space as the compiler brings them (the source's
// up axis turned to +Z, the document's import scale), are matched to the compiled vertex at the
// same place in the bind pose, so the lines and faces follow the model as it animates. A
// position with no compiled vertex there stays where it is in model space.
#pragma once

#include <vector>

#include "core/mathtypes.h"
#include "core/utlstring.h"
#include "core/utlvector.h"

class CCompiledModel;
class CToolScene;
class CToolSceneLineSetNode;
class CToolSceneModelNode;
class CToolSceneTriangleTintNode;

struct ZarnMeshProblemCounts_t
{
	int m_nBorderEdges = 0;
	int m_nNonManifoldEdges = 0;
	int m_nFlippedFaces = 0;
	int m_nSources = 0; // mesh sources read and checked

	int Total() const { return m_nBorderEdges + m_nNonManifoldEdges + m_nFlippedFaces; }
};

// The colours the findings are drawn in.
constexpr Color ZARN_MESH_PROBLEM_EDGE_COLOR = Color(255, 0, 0, 255);
constexpr Color ZARN_MESH_PROBLEM_FACE_COLOR = Color(255, 40, 40, 150);

class CZarnMeshProblems
{
public:
	// A point of a finding: a compiled vertex (mesh and vertex index) when one stands at the
	// place, otherwise the model-space position itself.
	struct Point_t
	{
		int m_nMesh = -1;
		int m_nVertex = -1;
		Vector m_vModel; // the position in model space, bind pose
	};
	struct Edge_t
	{
		Point_t m_Points[2];
		bool m_bNonManifold = false;
	};
	struct Triangle_t
	{
		Point_t m_Points[3];
	};

	// Reads and checks the mesh sources of the model document `pszModelDocument` (an absolute
	// path) against the compiled model. Content-relative source names resolve under
	// `pszContentRoot`. False with a message when the document cannot be read; a source that
	// cannot be read is skipped and named in `pError` too.
	bool Load(const char *pszContentRoot, const char *pszModelDocument, const CCompiledModel &model, CUtlString *pError = nullptr);
	void Clear();

	const ZarnMeshProblemCounts_t &GetCounts() const { return m_Counts; }
	const std::vector<Edge_t> &GetEdges() const { return m_Edges; }
	const std::vector<Triangle_t> &GetTriangles() const { return m_Triangles; }
	// Points that found their compiled vertex, of all points.
	int GetMatchedPoints() const { return m_nMatchedPoints; }
	int GetPointCount() const { return m_nPoints; }

	// Where a point stands in the world, on a model node in its current pose.
	static Vector WorldPosition(const Point_t &point, const CToolSceneModelNode &node);

	// Makes (or refreshes) the line and tint nodes of the findings in a scene, over the model
	// node in its current pose; drawn on top, so that nothing hides them.
	void UpdateNodes(CToolScene &scene, const CToolSceneModelNode &node);
	// Takes the nodes out of the scene.
	void RemoveNodes(CToolScene &scene);

private:
	std::vector<Edge_t> m_Edges;
	std::vector<Triangle_t> m_Triangles;
	ZarnMeshProblemCounts_t m_Counts;
	int m_nMatchedPoints = 0;
	int m_nPoints = 0;
	CToolSceneLineSetNode *m_pLines = nullptr;
	CToolSceneTriangleTintNode *m_pTints = nullptr;
};
