"""What the cases work on: a drawn video of a moment, pictures, truth, configurations, a saved run, results."""
import os
import random
import struct
import subprocess
import zlib

BOX = "40,30,24,24"  # where the square of the pictures starts
CLIP_BOX = "116,165,32,60"  # where the figure of the drawn video starts
FRAMES = 12
EARLIER = "what an earlier run wrote\n"


def png(width, height, rows):
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    data = zlib.compress(b"".join(b"\0" + row for row in rows), 1)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", data) + chunk(b"IEND", b"")


def picture(number, width=160, height=120, colour=True):
    """A textured square that walks to the right over a textured ground."""
    noise = random.Random(7)

    def row_of(pixels, level):
        return bytes(level() for _ in range(3 * pixels)) if colour else bytes(v for _ in range(pixels) for v in [level()] * 3)
    ground = [row_of(width, lambda: noise.randrange(90, 130)) for _ in range(height)]
    figure = [row_of(24, lambda: noise.choice((30, 220))) for _ in range(24)]
    left = 40 + 2 * number
    rows = []
    for y, row in enumerate(ground):
        inside = 30 <= y < 54
        rows.append(row[:3 * left] + figure[y - 30] + row[3 * (left + 24):] if inside else row)
    return png(width, height, rows)


def csrt(program, folder, *args):
    done = subprocess.run([program, *args], cwd=folder, capture_output=True, check=False)
    if done.returncode != 0:
        raise SystemExit(f"bad-input: cannot make the material: {' '.join(args)}: {done.stderr.decode()}")


def write(folder, name, text):
    with open(os.path.join(folder, name), "wb") as file:
        file.write(text if isinstance(text, bytes) else text.encode())


def make(program, folder):
    os.makedirs(os.path.join(folder, "frames"))
    os.makedirs(os.path.join(folder, "otb", "img"))
    os.makedirs(os.path.join(folder, "empty"))
    for number in range(6):
        write(folder, f"frames/{number:03}.png", picture(number))
        write(folder, f"otb/img/{number:04}.png", picture(number))
    rows = [f"{40 + 2 * i},30,24,24\n" for i in range(6)]
    write(folder, "otb/groundtruth_rect.txt", "".join(rows))
    write(folder, "boxes.txt", "".join(rows))
    write(folder, "truth.csv",
          "frame,id,x,y,w,h\n" + "".join(f"{i + 1},{t},{40 + 2 * i},30,24,24\n" for i in range(6) for t in "abc"))
    write(folder, "c.json", '{"roi": {"min_size": 64}}\n')
    write(folder, "meta.csv", "frame,pan_deg,tilt_deg,hfov_deg,vfov_deg\n" + "".join(f"{i},1,2,40,30\n" for i in range(6)))
    write(folder, "moment.json", '{"duration_s": 0.2, "title": "a moment", "frame": {"width": 160, "height": 120}, '
                                 '"target": {"path": [{"pan_deg": 2, "tilt_deg": 0}]}}')
    write(folder, "earlier.txt", EARLIER)
    for name in ("earlier.jsonl", "earlier.html", "earlier.png", "earlier.mp4", "earlier.avi", "earlier.json"):
        write(folder, name, EARLIER)
    csrt(program, folder, "draw-scene", "w.mkv", "--frames", str(FRAMES))
    csrt(program, folder, "draw-scene", "w.avi", "--frames", str(FRAMES))
    csrt(program, folder, "track", "frames", "--box", BOX, "--save-run", "saved", "--quiet")
    for part in (1, 2):
        csrt(program, folder, "evaluate", "frames", "--truth", "truth.csv", "--shard", f"{part}/3", "--quiet", "--json",
             f"part{part}.json")
    csrt(program, folder, "evaluate", "otb", "--quiet", "--json", "result.json")
