// Small readers of template members for the configuration elements: the lists of a template
// as lists of pointers, and the few scalar members the elements consult.
#pragma once

#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/core/mintyardtemplate.h"

template <typename T> CUtlVector<const T *> TemplatePointers(const CUtlVector<T> &list)
{
	CUtlVector<const T *> out;
	out.reserve(list.size());
	for (const T &element : list)
		out.push_back(&element);
	return out;
}

inline const CUtlString &TemplateId(const CMintyardTemplateElement *p) { return p->id; }
inline const CUtlString &TemplateNameToken(const CMintyardTemplateElement *p) { return p->name; }
inline bool TemplateOptional(const CMintyardTemplateElement *p) { return p->optional; }
inline int TemplateMaxFileSizeKB(const CMintyardTemplateElement *p)
{
	const CMintyardTemplateFilename *pFile = dynamic_cast<const CMintyardTemplateFilename *>(p);
	return pFile ? pFile->max_file_size_kb : -1;
}
inline const CUtlString &TemplateDirectory(const CMintyardTemplate *p) { return p->directory; }
inline int TemplateMaxSubmissionSizeKB(const CMintyardTemplate *p) { return p ? p->max_submission_size_kb : -1; }

inline CUtlVector<const CMintyardTemplate_ZarnModel *> TemplateModels(const CMintyardTemplate *p) { return TemplatePointers(p->models); }
inline CUtlVector<const CMintyardTemplate_ZarnImageSet *> TemplateImageSets(const CMintyardTemplate *p) { return TemplatePointers(p->image_sets); }
inline CUtlVector<const CMintyardTemplate_ZarnSoundSet *> TemplateSoundSets(const CMintyardTemplate *p) { return TemplatePointers(p->sound_sets); }
inline CUtlVector<const CMintyardTemplate_MiscData *> TemplateMiscData(const CMintyardTemplate *p) { return TemplatePointers(p->misc_data); }
inline CUtlVector<const CMintyardTemplate_ZarnItemDef *> TemplateItemDefs(const CMintyardTemplate *p) { return TemplatePointers(p->item_defs); }

inline CUtlVector<const CMintyardTemplate_ZarnMesh *> ModelLods(const CMintyardTemplate_ZarnModel *p) { return TemplatePointers(p->lod_list); }
inline CUtlVector<const CMintyardTemplate_ZarnMesh *> MeshExtraMeshes(const CMintyardTemplate_ZarnMesh *p) { return TemplatePointers(p->extra_meshes); }
inline CUtlVector<const CMintyardTemplate_ZarnMaterial *> ModelMaterials(const CMintyardTemplate_ZarnModel *p) { return TemplatePointers(p->material_list); }
inline CUtlVector<const CMintyardTemplate_ZarnModel::CAnim *> ModelAnims(const CMintyardTemplate_ZarnModel *p) { return TemplatePointers(p->anim_list); }
inline CUtlVector<const CMintyardTemplate_ZarnModel::CAnimBundle *> ModelBundles(const CMintyardTemplate_ZarnModel *p) { return TemplatePointers(p->anim_bundle_list); }
inline CUtlVector<const CMintyardTemplate_ZarnModel::CAnim *> BundleAnims(const CMintyardTemplate_ZarnModel::CAnimBundle *p) { return TemplatePointers(p->anim_list); }
inline CUtlVector<const CMintyardTemplate_ZarnModel::CAttach *> ModelAttaches(const CMintyardTemplate_ZarnModel *p) { return TemplatePointers(p->attach_list); }
inline CUtlVector<const CMintyardTemplate_ZarnModel::CParticleSnapshot *> ModelSnapshots(const CMintyardTemplate_ZarnModel *p)
{
	return TemplatePointers(p->particle_snapshot_list);
}
inline const CUtlString &ModelNameSuffix(const CMintyardTemplate_ZarnModel *p) { return p->model_name_suffix; }
inline const CMintyardTemplateFilename *MaterialTexture(const CMintyardTemplate_ZarnMaterial *p, int i) { return &p->textures[i]; }

inline const CUtlString &AnimDefault(const CMintyardTemplate_ZarnModel::CAnim *p) { return p->default_anim; }
inline const CUtlString &AnimFallbackId(const CMintyardTemplate_ZarnModel::CAnim *p) { return p->fallback_anim_id; }
inline const CUtlString &AttachDefaultJoint(const CMintyardTemplate_ZarnModel::CAttach *p) { return p->attach_joint; }
inline void AttachDefaultOffset(const CMintyardTemplate_ZarnModel::CAttach *p, float *out)
{
	out[0] = p->default_offset.x;
	out[1] = p->default_offset.y;
	out[2] = p->default_offset.z;
}
inline void AttachDefaultRotation(const CMintyardTemplate_ZarnModel::CAttach *p, float *out)
{
	out[0] = p->default_rotation.x;
	out[1] = p->default_rotation.y;
	out[2] = p->default_rotation.z;
}
inline const CUtlString &SnapshotFileSuffix(const CMintyardTemplate_ZarnModel::CParticleSnapshot *p) { return p->file_suffix; }

inline CUtlVector<const CMintyardTemplate_ZarnImageSet::CImage *> ImageSetImages(const CMintyardTemplate_ZarnImageSet *p) { return TemplatePointers(p->image_list); }
inline CUtlVector<const CMintyardTemplate_ZarnImageSet::CEmoticon *> ImageSetEmoticons(const CMintyardTemplate_ZarnImageSet *p)
{
	return TemplatePointers(p->emoticon_image_list);
}
inline int ImageSetType(const CMintyardTemplate_ZarnImageSet *p) { return (int)p->image_set_type; }
inline int ImageType(const CMintyardTemplate_ZarnImageSet::CImage *p) { return (int)p->image_type; }
inline int ImageExactWidth(const CMintyardTemplate_ZarnImageSet::CImage *p) { return p->exact_width; }
inline int ImageExactHeight(const CMintyardTemplate_ZarnImageSet::CImage *p) { return p->exact_height; }
inline const CMintyardTemplateFilename *EmoticonImageTemplate(const CMintyardTemplate_ZarnImageSet::CEmoticon *p) { return &p->image; }
inline const CMintyardTemplateElement *EmoticonKeywordTemplate(const CMintyardTemplate_ZarnImageSet::CEmoticon *p) { return &p->keyword; }
inline const CMintyardTemplateElement *EmoticonDefaultFrameTemplate(const CMintyardTemplate_ZarnImageSet::CEmoticon *p) { return &p->default_frame; }

inline CUtlVector<const CMintyardTemplate_ZarnSoundSet::CSound *> SoundSetSounds(const CMintyardTemplate_ZarnSoundSet *p) { return TemplatePointers(p->sound_list); }
inline bool ItemDefHasPortrait(const CMintyardTemplate_ZarnItemDef *p) { return p->has_portrait; }
