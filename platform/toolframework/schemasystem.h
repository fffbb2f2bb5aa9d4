// The host's schema system: the record classes that libraries move to and from KV3 documents.
// A library installs its bindings in four phases: types, classes, members, fix-ups.
#pragma once

struct KV3ClassInfo_t;

#define SCHEMASYSTEM_INTERFACE_VERSION "SchemaSystem_001"

class ISchemaSystem
{
public:
	virtual void RegisterType(const char *module, const char *typeName) = 0;
	virtual void RegisterClass(const char *module, const KV3ClassInfo_t *info) = 0;
	virtual void RegisterMember(const char *module, const char *className, const char *memberName) = 0;
	virtual void FinishModule(const char *module) = 0;

protected:
	~ISchemaSystem() = default;
};
