#!/usr/bin/env python3
"""Fills a fresh local content service with a few published files of its own account, and one of
another author who names that account a co-author, so that the tool's browser shows something on
first start.

    scripts/seed_brume_service.py 127.0.0.1:27080
"""
import json
import struct
import sys
import urllib.request
import uuid
import zlib


def png(width, height, colour_a, colour_b, stripe):
    """A small gradient picture with diagonal stripes, as PNG bytes."""
    rows = bytearray()
    for y in range(height):
        rows.append(0)
        for x in range(width):
            t = (x + y) / (width + height - 2)
            c = [int(a + (b - a) * t) for a, b in zip(colour_a, colour_b)]
            if ((x + y) // stripe) % 2 == 0:
                c = [min(255, v + 40) for v in c]
            rows.extend(c)

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)

    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(bytes(rows), 9)) + chunk(b"IEND", b""))


def request(base, method, path, body=None, content_type="application/json", account=None):
    headers = {"Content-Type": content_type}
    if account:
        headers.update({"X-Brume-Account": str(account[0]), "X-Brume-Persona": account[1]})
    req = urllib.request.Request(base + path, data=body, method=method, headers=headers)
    with urllib.request.urlopen(req, timeout=30) as answer:
        return json.loads(answer.read().decode("utf-8"))


def multipart(parts):
    boundary = "----mintyard" + uuid.uuid4().hex
    out = bytearray()
    for name, filename, data in parts:
        out += ("--%s\r\n" % boundary).encode()
        disposition = 'form-data; name="%s"' % name
        if filename:
            disposition += '; filename="%s"' % filename
        out += ("Content-Disposition: %s\r\n\r\n" % disposition).encode()
        out += data + b"\r\n"
    out += ("--%s--\r\n" % boundary).encode()
    return bytes(out), "multipart/form-data; boundary=" + boundary


SAMPLES = [
    # title, description, tags, file type, visibility, content name, colours, made by the guest author
    ("Sunward Arena", "A custom game for five against five on a small island.\nFirst to 30 kills wins.",
     ["Custom Game"], 0, 0, "arena.bdl", ((40, 90, 160), (220, 180, 60)), False),
    ("Glade Destination", "A quiet forest glade to spend the waiting time in.",
     ["Destination"], 0, 1, "glade.bdl", ((20, 110, 50), (180, 220, 120)), False),
    ("Tolva Crossing", "A two-lane map with a river crossing.", ["Map", "TL2"], 0, 2, "crossing.bdl",
     ((90, 60, 30), (200, 170, 120)), False),
    ("Ember Crown", "A crown of cooled embers for the Warden's head slot.", ["Wearable", "Warden", "Head"], 1, 0,
     "ember_crown.zip", ((120, 20, 10), (250, 150, 40)), False),
    ("Frostbite Blade", "An ice-forged blade.\nIncludes a custom idle animation.", ["Wearable", "Warden", "Weapon"], 1, 2,
     "frostbite_blade.zip", ((20, 60, 140), (200, 240, 255)), False),
    ("Moss Courier", "A slow, patient courier covered in moss.", ["Courier"], 1, 1, "moss_courier.zip",
     ((30, 80, 30), (150, 200, 90)), False),
    ("Lantern Festival", "Paper lanterns over the arena, made together with the sample author.", ["Custom Game"], 0, 0,
     "lanterns.bdl", ((150, 40, 90), (250, 210, 120)), True),
]


def main():
    address = sys.argv[1] if len(sys.argv) > 1 else "127.0.0.1:27080"
    base = "http://" + address
    me = request(base, "GET", "/api/v1/status")["account"]
    # Another author of the same universe, who names the service's own account a co-author.
    guest = ((me >> 32) << 32 | 90210, "Guest Artist")
    for index, (title, text, tags, file_type, visibility, name, (ca, cb), owner) in enumerate(SAMPLES):
        created = request(base, "POST", "/api/v1/files", json.dumps({"file_type": file_type}).encode(), account=owner and guest)
        file_id = created["publishedfileid"]
        meta = {"title": title, "file_description": text, "tags": tags, "visibility": visibility,
                "change_note": "Created %s." % title}
        content = ("sample content of %s\n" % title).encode() * 64
        parts = [("meta", None, json.dumps(meta).encode()), ("content", name, content),
                 ("preview", "preview.png", png(256, 256, ca, cb, 12 + 4 * index))]
        body, content_type = multipart(parts)
        answer = request(base, "POST", "/api/v1/files/%d/update" % file_id, body, content_type, account=owner and guest)
        if owner and answer.get("result") == 1:
            answer = request(base, "POST", "/api/v1/files/%d/contributors" % file_id, json.dumps({"account": me}).encode(),
                             account=guest)
        if answer.get("result") != 1:
            print("seeding %s failed: %s" % (title, answer), file=sys.stderr)
            return 1
    request(base, "POST", "/api/v1/files/%d/update" % 1, json.dumps({"change_note": "Balanced the spawn timers."}).encode())
    print("seeded %d sample files" % len(SAMPLES))
    return 0


if __name__ == "__main__":
    sys.exit(main())
