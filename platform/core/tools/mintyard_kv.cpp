// mintyard_kv: checks and formats the KV3 and KV1 text files that people write by hand
// (templates, sessions, game scripts).
//
//   mintyard_kv check FILE...   prints FILE(LINE,COL): MESSAGE for each file that does not parse;
//                               exits 1 when any file failed, 0 otherwise
//   mintyard_kv format FILE     prints the file as the project's writer writes it
//
// A file is read as KV3 when it starts with the KV3 header line, as KV1 otherwise.
#include <cstdio>
#include <cstring>

#include "core/fileio.h"
#include "core/keyvalues.h"
#include "core/keyvalues3.h"
#include "core/kv3text.h"

namespace
{
int Usage()
{
	fprintf(stderr, "usage: mintyard_kv check FILE...\n"
					"       mintyard_kv format FILE\n"
					"A file that starts with the KV3 header line is read as KV3, any other as KV1.\n"
					"format writes comments nowhere: they are not part of the document.\n");
	return 2;
}

// Parses one file; on failure returns false with the message in `error`.
bool ParseFile(const char *path, CUtlBuffer &text, CKeyValues3Context &kv3, KeyValues &kv1, bool &bIsKV3, CUtlString &error)
{
	if (!Plat_ReadFile(path, text, &error))
		return false;
	bIsKV3 = KV3TextHasHeader(text.View());
	if (bIsKV3)
		return LoadKV3(&kv3, &error, &text, KV3_FORMAT_GENERIC, path);
	KV1LoadOptions_t options;
	options.conditions = KV1_CONDITIONS_KEEP; // formatting must not drop platform-specific keys
	return kv1.LoadFromBuffer(path, text, nullptr, nullptr, options, &error);
}

int Check(int count, char **paths)
{
	int failures = 0;
	for (int i = 0; i < count; ++i)
	{
		CUtlBuffer text(CUtlBuffer::TEXT_BUFFER);
		CKeyValues3Context kv3;
		KeyValues kv1("root");
		bool bIsKV3 = false;
		CUtlString error;
		if (!ParseFile(paths[i], text, kv3, kv1, bIsKV3, error))
		{
			printf("%s\n", error.c_str());
			++failures;
		}
	}
	fflush(stdout);
	return failures ? 1 : 0;
}

int Format(const char *path)
{
	CUtlBuffer text(CUtlBuffer::TEXT_BUFFER);
	CKeyValues3Context kv3;
	KeyValues kv1("root");
	bool bIsKV3 = false;
	CUtlString error;
	if (!ParseFile(path, text, kv3, kv1, bIsKV3, error))
	{
		fprintf(stderr, "%s\n", error.c_str());
		return 1;
	}
	CUtlBuffer out(CUtlBuffer::TEXT_BUFFER);
	if (bIsKV3)
	{
		KV3HeaderInfo_t header;
		KV3ReadHeader(text.View(), header);
		if (!SaveKV3(KV3_ENCODING_TEXT, header.Format(), kv3.Root(), &error, &out))
		{
			fprintf(stderr, "%s: %s\n", path, error.c_str());
			return 1;
		}
	}
	else
		kv1.SaveToBuffer(out);
	fwrite(out.Base(), 1, out.Size(), stdout);
	return fflush(stdout) == 0 ? 0 : 1;
}
} // namespace

int main(int argc, char **argv)
{
	if (argc >= 3 && strcmp(argv[1], "check") == 0)
		return Check(argc - 2, argv + 2);
	if (argc == 3 && strcmp(argv[1], "format") == 0)
		return Format(argv[2]);
	return Usage();
}
