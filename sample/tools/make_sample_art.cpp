// Makes the art of the sample game from the game's own scripts, so that every mesh, texture,
// material and model document the sample names is ours and the same bytes come out on every run.
//
//   make_sample_art <sample dir> [<output dir>]
//
// The scripts are read from <sample dir>/game/zarn/scripts; the art is written under <output
// dir> (by default the sample folder itself): content/zarn/... and game/zarn/....

#include <cstdio>

#include "sampleart/sampleart.h"

int main(int argc, char **argv)
{
	if (argc < 2 || argc > 3 || std::string(argv[1]) == "--help")
	{
		fprintf(argc == 2 ? stdout : stderr, "usage: make_sample_art <sample dir> [<output dir>]\n");
		return argc == 2 ? 0 : 2;
	}
	sampleart::SampleArtReport_t report;
	const bool ok = sampleart::GenerateSampleArt(argv[1], argc == 3 ? argv[2] : argv[1], report);
	for (const std::string &error : report.m_Errors)
		fprintf(stderr, "error: %s\n", error.c_str());
	int triangles = 0;
	for (const sampleart::GeneratedFbx_t &fbx : report.m_Fbx)
		triangles += fbx.m_nTriangles;
	printf("%zu files, %zu FBX files, %d triangles\n", report.m_Files.size(), report.m_Fbx.size(), triangles);
	return ok ? 0 : 1;
}
