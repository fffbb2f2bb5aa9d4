#!/usr/bin/env python3
"""Writes the art of the sample sessions under sample/art/: ASCII FBX meshes (a box per level of
detail, with a root joint), ASCII FBX animations (the same joint turning over one second), and
PNG textures. The output is the same on every run; the files are committed.

    python3 sample/tools/make_sample_session_art.py [REPOSITORY_ROOT]
"""
import os
import struct
import sys
import zlib


def png(width, height, pixel):
    raw = bytearray()
    for y in range(height):
        raw.append(0)
        for x in range(width):
            raw.extend(pixel(x, y))
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xffffffff)
    ihdr = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", ihdr) + chunk(b"IDAT", zlib.compress(bytes(raw), 9)) + chunk(b"IEND", b"")


HEADER = """; FBX 7.4.0 project file
; Written by the Mintyard sample art generator.
FBXHeaderExtension:  {
	FBXHeaderVersion: 1003
	FBXVersion: 7400
	Creator: "Mintyard sample art generator"
}
GlobalSettings:  {
	Version: 1000
	Properties70:  {
		P: "UpAxis", "int", "Integer", "",2
		P: "UpAxisSign", "int", "Integer", "",1
		P: "FrontAxis", "int", "Integer", "",1
		P: "FrontAxisSign", "int", "Integer", "",1
		P: "CoordAxis", "int", "Integer", "",0
		P: "CoordAxisSign", "int", "Integer", "",1
		P: "UnitScaleFactor", "double", "Number", "",1
		P: "TimeMode", "enum", "", "",6
	}
}
"""


def box(sx, sy, sz):
    v = []
    for z in (0.0, sz):
        for y in (-sy / 2, sy / 2):
            for x in (-sx / 2, sx / 2):
                v += [x, y, z]
    faces = [(0, 2, 3, 1), (4, 5, 7, 6), (0, 1, 5, 4), (2, 6, 7, 3), (0, 4, 6, 2), (1, 3, 7, 5)]
    idx = []
    for f in faces:
        idx += [f[0], f[1], f[2], -f[3] - 1]
    return v, idx


def numbers(values):
    return ",".join(("%g" % x) for x in values)


def mesh_fbx(name, size, joint="root"):
    v, idx = box(*size)
    return HEADER + """Definitions:  {
	Version: 100
	Count: 4
	ObjectType: "GlobalSettings" {
		Count: 1
	}
	ObjectType: "Geometry" {
		Count: 1
	}
	ObjectType: "Model" {
		Count: 2
	}
}
Objects:  {
	Geometry: 1001, "Geometry::%(name)s", "Mesh" {
		Vertices: *%(nv)d {
			a: %(v)s
		}
		PolygonVertexIndex: *%(ni)d {
			a: %(i)s
		}
		GeometryVersion: 124
		Layer: 0 {
			Version: 100
		}
	}
	Model: 2001, "Model::%(name)s", "Mesh" {
		Version: 232
		Properties70:  {
		}
		Shading: T
		Culling: "CullingOff"
	}
	Model: 2002, "Model::%(joint)s", "LimbNode" {
		Version: 232
		Properties70:  {
		}
		Shading: T
		Culling: "CullingOff"
	}
}
Connections:  {
	C: "OO",2002,0
	C: "OO",2001,0
	C: "OO",1001,2001
}
""" % {"name": name, "joint": joint, "nv": len(v), "v": numbers(v), "ni": len(idx), "i": ",".join(str(i) for i in idx)}


def anim_fbx(name, degrees, joint="root"):
    second = 46186158000  # FBX time units per second
    times = [0, second // 2, second]
    values = [0.0, degrees / 2.0, float(degrees)]
    return HEADER + """Definitions:  {
	Version: 100
	Count: 6
	ObjectType: "GlobalSettings" {
		Count: 1
	}
	ObjectType: "Model" {
		Count: 1
	}
	ObjectType: "AnimationStack" {
		Count: 1
	}
	ObjectType: "AnimationLayer" {
		Count: 1
	}
	ObjectType: "AnimationCurveNode" {
		Count: 1
	}
	ObjectType: "AnimationCurve" {
		Count: 1
	}
}
Objects:  {
	Model: 3001, "Model::%(joint)s", "LimbNode" {
		Version: 232
		Properties70:  {
		}
		Shading: T
		Culling: "CullingOff"
	}
	AnimationStack: 3002, "AnimStack::%(name)s", "" {
		Properties70:  {
			P: "LocalStop", "KTime", "Time", "",%(stop)d
			P: "ReferenceStop", "KTime", "Time", "",%(stop)d
		}
	}
	AnimationLayer: 3003, "AnimLayer::BaseLayer", "" {
	}
	AnimationCurveNode: 3004, "AnimCurveNode::R", "" {
		Properties70:  {
			P: "d|X", "Number", "", "A",0
			P: "d|Y", "Number", "", "A",0
			P: "d|Z", "Number", "", "A",0
		}
	}
	AnimationCurve: 3005, "AnimCurve::", "" {
		Default: 0
		KeyVer: 4008
		KeyTime: *3 {
			a: %(times)s
		}
		KeyValueFloat: *3 {
			a: %(values)s
		}
		KeyAttrFlags: *1 {
			a: 24840
		}
		KeyAttrDataFloat: *4 {
			a: 0,0,255790911,0
		}
		KeyAttrRefCount: *1 {
			a: 3
		}
	}
}
Connections:  {
	C: "OO",3001,0
	C: "OO",3003,3002
	C: "OO",3004,3003
	C: "OP",3004,3001, "Lcl Rotation"
	C: "OP",3005,3004, "d|Z"
}
""" % {"name": name, "joint": joint, "stop": second, "times": ",".join(str(t) for t in times), "values": numbers(values)}


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
    art = os.path.join(root, "sample", "art", "courier")
    os.makedirs(art, exist_ok=True)

    def write(name, data):
        path = os.path.join(art, name)
        with open(path, "wb") as f:
            f.write(data.encode() if isinstance(data, str) else data)

    write("courier_lod0.fbx", mesh_fbx("courier_lod0", (24.0, 16.0, 30.0)))
    write("courier_lod1.fbx", mesh_fbx("courier_lod1", (24.0, 16.0, 30.0)))
    write("courier_saddlebag.fbx", mesh_fbx("courier_saddlebag", (10.0, 6.0, 6.0)))
    write("courier_flying_lod0.fbx", mesh_fbx("courier_flying_lod0", (30.0, 20.0, 20.0)))
    write("courier_flying_lod1.fbx", mesh_fbx("courier_flying_lod1", (30.0, 20.0, 20.0)))
    for name, degrees in (("courier_run", 30), ("courier_spawn", 360), ("courier_run_forward", 20),
                          ("courier_run_turn_left", -45), ("courier_run_turn_right", 45)):
        write(name + ".fbx", anim_fbx(name, degrees))
    size = 256
    write("courier_color.png", png(size, size, lambda x, y: (40 + (x * 180) // size, 160, 120 + (y * 100) // size)))
    write("courier_normal.png", png(size, size, lambda x, y: (128, 128, 255)))
    write("courier_specmask.png", png(size, size, lambda x, y: ((((x // 32) + (y // 32)) % 2) * 200 + 30,) * 3))

    # Emoticons: strips of 32 x 32 frames, a dot that grows from frame to frame.
    emoticons = os.path.join(root, "sample", "art", "emoticons")
    os.makedirs(emoticons, exist_ok=True)

    def strip(frames, colour):
        def pixel(x, y):
            frame, fx, fy = x // 32, x % 32 - 15.5, y - 15.5
            radius = 6 + frame * 4
            return colour if fx * fx + fy * fy <= radius * radius else (250, 246, 235)
        return png(32 * frames, 32, pixel)

    for name, frames, colour in (("emoticon_wave.png", 3, (242, 182, 69)), ("emoticon_grin.png", 2, (60, 200, 134))):
        with open(os.path.join(emoticons, name), "wb") as f:
            f.write(strip(frames, colour))


if __name__ == "__main__":
    main()
