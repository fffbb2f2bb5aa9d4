// Particle snapshots: a mesh source (FBX or DMX) to ".zsnap": a point per position of the source
// (its control points, as the file has them) with the normal of the corners there, Z-up like the
// models. With a local-space bone that the source has, the points are taken into that bone's
// bind space, so that they move with the bone; without one they stay in model space.
#include <cmath>

#include "compiledassets/compiledassets.h"
#include "core/strtools.h"
#include "meshio/assimp/assimpscene.h"
#include "resourcecompiler/compiler_internal.h"
#include "resourcecompiler/modelbuild.h"

namespace
{
Vector Normalize(double x, double y, double z)
{
	const double length = std::sqrt(x * x + y * y + z * z);
	if (!(length > 1e-20) || !std::isfinite(length))
		return Vector(0.0f, 0.0f, 1.0f);
	return Vector((float)(x / length), (float)(y / length), (float)(z / length));
}
} // namespace

bool CompileSnapshotSource(CResourceCompiler &rc, const CompileRoots_t &roots, const CUtlString &relative, const CUtlString &output,
	const CUtlString &localSpaceBone)
{
	SourceScene_t scene;
	CUtlString error;
	if (!LoadSourceSceneForCompile(roots.ContentPath(relative).c_str(), scene, error))
	{
		rc.Log().Error(relative, 0, "cannot read the mesh: %s", error.c_str());
		return false;
	}
	PrepareSourceForModel(scene, 1.0);

	Matrix4_t toBone;
	if (!localSpaceBone.empty())
	{
		const int joint = scene.FindJoint(localSpaceBone.c_str());
		if (joint >= 0)
			toBone = scene.joints[(size_t)joint].inverseBind;
		else
			rc.Log().Warning(relative, 0, "the local-space bone \"%s\" is not in the source; the points are kept as the source places them",
				localSpaceBone.c_str());
	}

	CCompiledSnapshot snapshot;
	snapshot.m_LocalSpaceBone = localSpaceBone;
	for (const CSourceMesh &mesh : scene.meshes)
	{
		const Matrix4_t toSpace = MatrixMultiply(toBone, mesh.m_MeshToModel);
		// Normals: the corners' normals summed per position (or the polygons' where the mesh has
		// none), then taken along with the points.
		std::vector<double> sums((size_t)mesh.PositionCount() * 3, 0.0);
		for (int p = 0; p < mesh.PolygonCount(); ++p)
		{
			const std::span<const int32> corners = mesh.PolygonCorners(p);
			double face[3] = { 0.0, 0.0, 0.0 };
			if (!mesh.HasNormals())
			{
				for (size_t i = 0; i < corners.size(); ++i)
				{
					const Vector &a = mesh.m_Positions[(size_t)corners[i]];
					const Vector &b = mesh.m_Positions[(size_t)corners[(i + 1) % corners.size()]];
					face[0] += ((double)a.y - b.y) * ((double)a.z + b.z);
					face[1] += ((double)a.z - b.z) * ((double)a.x + b.x);
					face[2] += ((double)a.x - b.x) * ((double)a.y + b.y);
				}
			}
			for (size_t i = 0; i < corners.size(); ++i)
			{
				double *sum = &sums[(size_t)corners[i] * 3];
				if (mesh.HasNormals())
				{
					const Vector &n = mesh.m_CornerNormals[(size_t)(mesh.m_PolygonStart[(size_t)p] + (int32)i)];
					sum[0] += n.x;
					sum[1] += n.y;
					sum[2] += n.z;
				}
				else
				{
					sum[0] += face[0];
					sum[1] += face[1];
					sum[2] += face[2];
				}
			}
		}
		// Directions go with the inverse transpose; for the rotations and uniform scales of a
		// placement the matrix itself points the same way.
		Matrix4_t inverse, normalMatrix;
		MatrixInverse(toSpace, inverse);
		for (int r = 0; r < 3; ++r)
		{
			for (int c = 0; c < 3; ++c)
				normalMatrix.m[r][c] = inverse.m[c][r];
		}
		for (int p = 0; p < mesh.PositionCount(); ++p)
		{
			snapshot.m_Positions.push_back(MatrixTransformPoint(toSpace, mesh.m_Positions[(size_t)p]));
			const Vector n = MatrixTransformDirection(normalMatrix, Vector((float)sums[(size_t)p * 3], (float)sums[(size_t)p * 3 + 1], (float)sums[(size_t)p * 3 + 2]));
			snapshot.m_Normals.push_back(Normalize(n.x, n.y, n.z));
		}
	}
	if (snapshot.m_Positions.empty())
		rc.Log().Warning(relative, 0, "the mesh has no points");
	const CUtlString path = roots.GamePath(output);
	if (!ResourceCompiler_CreateParentFolders(path, error) || !WriteCompiledSnapshot(path.c_str(), snapshot, &error))
	{
		rc.Log().Error(relative, 0, "cannot write %s: %s", output.c_str(), error.c_str());
		return false;
	}
	rc.Log().Progress("  %s: %zu points%s%s -> %s", relative.c_str(), snapshot.m_Positions.size(), localSpaceBone.empty() ? "" : " relative to ",
		localSpaceBone.c_str(), output.c_str());
	return true;
}
