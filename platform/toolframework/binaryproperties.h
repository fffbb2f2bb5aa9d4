// What a tool library tells the host about itself before it is started.
#pragma once

#include "core/platform.h"

// A value word and a kind word: kind 0 means the value is a pointer to a C string, kind 1 an
// integer.
struct BinaryPropertyValue_t
{
	uint64 m_nValue;
	uint64 m_nKind;
};

enum
{
	BINARY_PROPERTY_STRING = 0,
	BINARY_PROPERTY_INTEGER = 1,
};

// The exports of a tool library, as the host looks them up.
typedef int (*BinaryProperties_GetValueFn)(int key, BinaryPropertyValue_t *out, ...);
typedef int (*GetResourceManifestCountFn)();
typedef int (*GetResourceManifestsFn)(int first, void **out, size_t maxCount);
typedef bool (*InstallSchemaBindingsFn)(const char *interfaceName, void *schemaSystem);

// A list of files a library needs at run time, registered by its static initialisers.
struct ResourceManifest_t
{
	const char *m_pName;
	const char *const *m_ppResources; // "game:..." paths
	int m_nCount;
};
