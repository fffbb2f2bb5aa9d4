#include "toolscene/sceneshaders.h"

#include <string>

// The colour helpers both fragment shaders share. The YCoCg decode is the inverse of the
// imaging module's "ConvertToYCoCg": chroma in red and green offset by 128 and scaled per
// block, the scale in blue as (scale - 1) * 8, luma in alpha.
#define SCENE_COLOR_HELPERS \
	"const int FLAG_COLOR_TEXTURE = 0x1;\n" \
	"const int FLAG_YCOCG = 0x2;\n" \
	"const int FLAG_NORMAL_MAP = 0x4;\n" \
	"const int FLAG_TRANSLUCENCY = 0x8;\n" \
	"const int FLAG_ALPHA_TEST = 0x10;\n" \
	"const int FLAG_DECODE_SRGB = 0x20;\n" \
	"const int FLAG_RAW = 0x40;\n" \
	"vec3 SRGBToLinear(vec3 c)\n" \
	"{\n" \
	"	return mix(c / 12.92, pow((c + 0.055) / 1.055, vec3(2.4)), step(vec3(0.04045), c));\n" \
	"}\n" \
	"vec3 LinearToSRGB(vec3 c)\n" \
	"{\n" \
	"	c = clamp(c, 0.0, 1.0);\n" \
	"	vec3 s1 = sqrt(c);\n" \
	"	vec3 s2 = sqrt(s1);\n" \
	"	vec3 s3 = sqrt(s2);\n" \
	"	return clamp(0.662002687 * s1 + 0.684122060 * s2 - 0.323583601 * s3 - 0.0225411470 * c, 0.0, 1.0);\n" \
	"}\n" \
	"vec3 YCoCgToRGB(vec4 texel)\n" \
	"{\n" \
	"	vec4 t = texel * 255.0;\n" \
	"	float scale = floor((floor(t.b + 0.5) + 4.0) / 8.0) + 1.0;\n" \
	"	float co = (t.r - 128.0) / scale;\n" \
	"	float cg = (t.g - 128.0) / scale;\n" \
	"	return clamp(vec3(t.a + co - cg, t.a + cg, t.a - co - cg) / 255.0, 0.0, 1.0);\n" \
	"}\n" \
	"vec4 SampleColor(sampler2D colorTexture, vec2 uv, int flags)\n" \
	"{\n" \
	"	vec4 texel = texture(colorTexture, uv);\n" \
	"	if ((flags & FLAG_YCOCG) != 0)\n" \
	"		texel = vec4(YCoCgToRGB(texel), 1.0);\n" \
	"	if ((flags & FLAG_DECODE_SRGB) != 0)\n" \
	"		texel.rgb = SRGBToLinear(texel.rgb);\n" \
	"	return texel;\n" \
	"}\n"

// The bones come from a uniform block when the skeleton fits one, otherwise from a texture
// buffer; the source is completed by SceneShader_ModelVertexSource.
static const char *const s_pszModelVertexBody = R"(
layout(location = 0) in vec3 aPosition;
layout(location = 1) in vec3 aNormal;
layout(location = 2) in vec4 aTangent;
layout(location = 3) in vec2 aTexCoord;
layout(location = 4) in uvec4 aBones;
layout(location = 5) in vec4 aWeights;

uniform mat4 uViewProjection;
uniform mat4 uModel;
uniform mat3 uNormalMatrix;
uniform int uSkinned;
#ifdef BONES_IN_BUFFER_TEXTURE
uniform samplerBuffer uBones;
vec4 BoneRow(int i)
{
	return texelFetch(uBones, i);
}
#else
layout(std140) uniform SceneBones
{
	vec4 uBoneRows[SCENE_UNIFORM_BONE_ROWS];
};
vec4 BoneRow(int i)
{
	return uBoneRows[i];
}
#endif

out vec3 vWorldPosition;
out vec3 vNormal;
out vec4 vTangent;
out vec2 vTexCoord;

void main()
{
	vec3 position = aPosition;
	vec3 normal = aNormal;
	vec3 tangent = aTangent.xyz;
	if (uSkinned != 0)
	{
		vec4 r0 = vec4(0.0);
		vec4 r1 = vec4(0.0);
		vec4 r2 = vec4(0.0);
		for (int k = 0; k < 4; ++k)
		{
			float w = aWeights[k];
			int b = int(aBones[k]) * 3;
			r0 += w * BoneRow(b);
			r1 += w * BoneRow(b + 1);
			r2 += w * BoneRow(b + 2);
		}
		vec4 p = vec4(position, 1.0);
		position = vec3(dot(r0, p), dot(r1, p), dot(r2, p));
		normal = vec3(dot(r0.xyz, normal), dot(r1.xyz, normal), dot(r2.xyz, normal));
		tangent = vec3(dot(r0.xyz, tangent), dot(r1.xyz, tangent), dot(r2.xyz, tangent));
	}
	vec4 world = uModel * vec4(position, 1.0);
	vWorldPosition = world.xyz;
	vNormal = uNormalMatrix * normal;
	vTangent = vec4(mat3(uModel) * tangent, aTangent.w);
	vTexCoord = aTexCoord;
	gl_Position = uViewProjection * world;
}
)";

std::string SceneShader_ModelVertexSource(bool bBonesInBufferTexture)
{
	std::string source = "#version 330 core\n";
	if (bBonesInBufferTexture)
		source += "#define BONES_IN_BUFFER_TEXTURE 1\n";
	else
		source += "#define SCENE_UNIFORM_BONE_ROWS " + std::to_string(SCENE_UNIFORM_BONES * 3) + "\n";
	return source + s_pszModelVertexBody;
}

const char *const g_pszModelFragmentShader = "#version 330 core\n" SCENE_COLOR_HELPERS R"(
in vec3 vWorldPosition;
in vec3 vNormal;
in vec4 vTangent;
in vec2 vTexCoord;

uniform sampler2D uColorTexture;
uniform sampler2D uNormalTexture;
uniform sampler2D uTranslucencyTexture;
uniform int uFlags;
uniform vec4 uColor;
uniform vec4 uTint;
uniform vec3 uEyePosition;
uniform vec3 uLightDirection;
uniform vec3 uLightColor;
uniform vec3 uAmbientColor;
uniform vec3 uAmbientDirection;
uniform vec3 uSpecularColor;
uniform float uSpecularPower;

out vec4 oColor;

void main()
{
	vec4 albedo = uColor;
	if ((uFlags & FLAG_COLOR_TEXTURE) != 0)
		albedo *= SampleColor(uColorTexture, vTexCoord, uFlags);
	float alpha = albedo.a;
	if ((uFlags & FLAG_TRANSLUCENCY) != 0)
		alpha = texture(uTranslucencyTexture, vTexCoord).r * uColor.a;
	if ((uFlags & FLAG_ALPHA_TEST) != 0 && alpha < 0.5)
		discard;

	vec3 eye = normalize(uEyePosition - vWorldPosition);
	vec3 n = normalize(vNormal);
	if ((uFlags & FLAG_NORMAL_MAP) != 0)
	{
		vec3 t = vTangent.xyz - n * dot(n, vTangent.xyz);
		if (dot(t, t) > 1e-12)
		{
			t = normalize(t);
			vec3 b = cross(n, t) * vTangent.w;
			vec3 m = texture(uNormalTexture, vTexCoord).xyz * 2.0 - 1.0;
			n = normalize(t * m.x + b * m.y + n * m.z);
		}
	}
	// Faces are lit from the side they are seen from.
	if (dot(n, eye) < 0.0)
		n = -n;

	vec3 toLight = -uLightDirection;
	float diffuse = max(dot(n, toLight), 0.0);
	vec3 ambient = uAmbientColor;
	if (dot(uAmbientDirection, uAmbientDirection) > 0.0)
		ambient *= 0.6 + 0.4 * dot(n, -uAmbientDirection);
	// Schlick's rational stand-in for pow(x, n): no exp or log per pixel.
	float highlight = max(dot(n, normalize(toLight + eye)), 0.0);
	float specular = diffuse > 0.0 ? highlight / (uSpecularPower - uSpecularPower * highlight + highlight) : 0.0;
	vec3 color = albedo.rgb * (uLightColor * diffuse + ambient) + uSpecularColor * specular;
	color = mix(color, color * uTint.rgb, uTint.a);
	oColor = vec4(LinearToSRGB(color), alpha);
}
)";

const char *const g_pszColorVertexShader = R"(#version 330 core
layout(location = 0) in vec3 aPosition;
layout(location = 1) in vec4 aColor;
uniform mat4 uViewProjection;
out vec4 vColor;
void main()
{
	vColor = aColor;
	gl_Position = uViewProjection * vec4(aPosition, 1.0);
}
)";

const char *const g_pszLineGeometryShader = R"(#version 330 core
layout(lines) in;
layout(triangle_strip, max_vertices = 4) out;
in vec4 vColor[];
out vec4 gColor;
uniform vec2 uViewport;
uniform float uWidth;

void main()
{
	vec4 a = gl_in[0].gl_Position;
	vec4 b = gl_in[1].gl_Position;
	vec4 ca = vColor[0];
	vec4 cb = vColor[1];
	// Cut the part behind the eye: the widening is done in screen space.
	const float nearW = 1e-3;
	if (a.w < nearW && b.w < nearW)
		return;
	if (a.w < nearW)
	{
		float t = (nearW - a.w) / (b.w - a.w);
		a = mix(a, b, t);
		ca = mix(ca, cb, t);
	}
	else if (b.w < nearW)
	{
		float t = (nearW - b.w) / (a.w - b.w);
		b = mix(b, a, t);
		cb = mix(cb, ca, t);
	}
	vec2 halfViewport = uViewport * 0.5;
	vec2 sa = a.xy / a.w * halfViewport;
	vec2 sb = b.xy / b.w * halfViewport;
	vec2 d = sb - sa;
	float len = length(d);
	vec2 dir = len > 1e-4 ? d / len : vec2(1.0, 0.0);
	vec2 offset = vec2(-dir.y, dir.x) * (uWidth * 0.5) / halfViewport;
	gColor = ca;
	gl_Position = vec4(a.xy + offset * a.w, a.zw);
	EmitVertex();
	gColor = ca;
	gl_Position = vec4(a.xy - offset * a.w, a.zw);
	EmitVertex();
	gColor = cb;
	gl_Position = vec4(b.xy + offset * b.w, b.zw);
	EmitVertex();
	gColor = cb;
	gl_Position = vec4(b.xy - offset * b.w, b.zw);
	EmitVertex();
	EndPrimitive();
}
)";

const char *const g_pszLineFragmentShader = R"(#version 330 core
in vec4 gColor;
out vec4 oColor;
void main()
{
	oColor = gColor;
}
)";

const char *const g_pszColorFragmentShader = R"(#version 330 core
in vec4 vColor;
out vec4 oColor;
void main()
{
	oColor = vColor;
}
)";

const char *const g_pszScreenVertexShader = R"(#version 330 core
layout(location = 0) in vec3 aPosition;
layout(location = 1) in vec2 aTexCoord;
layout(location = 2) in vec4 aColor;
uniform vec2 uViewport;
out vec2 vTexCoord;
out vec4 vColor;
void main()
{
	vTexCoord = aTexCoord;
	vColor = aColor;
	gl_Position = vec4(aPosition.x / uViewport.x * 2.0 - 1.0, 1.0 - aPosition.y / uViewport.y * 2.0, 0.0, 1.0);
}
)";

const char *const g_pszScreenFragmentShader = "#version 330 core\n" SCENE_COLOR_HELPERS R"(
in vec2 vTexCoord;
in vec4 vColor;
uniform sampler2D uColorTexture;
uniform sampler2D uTranslucencyTexture;
uniform int uFlags;
uniform vec4 uColor;
out vec4 oColor;

void main()
{
	if ((uFlags & FLAG_RAW) != 0)
	{
		oColor = texture(uColorTexture, vTexCoord) * vColor;
		return;
	}
	vec4 color = uColor;
	if ((uFlags & FLAG_COLOR_TEXTURE) != 0)
		color *= SampleColor(uColorTexture, vTexCoord, uFlags);
	float alpha = color.a;
	if ((uFlags & FLAG_TRANSLUCENCY) != 0)
		alpha = texture(uTranslucencyTexture, vTexCoord).r * uColor.a;
	if ((uFlags & FLAG_ALPHA_TEST) != 0 && alpha < 0.5)
		discard;
	oColor = vec4(LinearToSRGB(color.rgb) * vColor.rgb, alpha * vColor.a);
}
)";
