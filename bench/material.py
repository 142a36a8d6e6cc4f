"""The files that are measured with, and whether two outputs are the same work."""

import hashlib
import mmap
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from measuring import Failure, ask, say

ROOT = Path(__file__).resolve().parent.parent
FOLDER = ROOT / "build" / "bench"

CLIP_SECONDS = 30
LARGE_BYTES = 1_000_000_000
SHORT_SECONDS = 120
LONG_SECONDS = 7200

LARGEST_DIFFERENCE = 0.01  # between the outputs' sizes, as a part of them
SPARE_SOUND_PACKETS = 2  # of 1024 samples: programs cut the end of the sound differently


def built_kestrel():
    """The release build of these sources."""
    if subprocess.run([ROOT / "scripts" / "kestrel", "--version"], stdout=sys.stderr).returncode:
        raise Failure("kestrel does not build")
    return ROOT / "build" / "release" / "tools" / "kestrel"


def made(name, command, sources=()):
    """The file that 'command', the arguments of ffmpeg but for the output, makes. It is made once:
    its name changes with what it is made of."""
    recipe = [str(word) for word in command]
    recipe += [f"{source.name} {source.stat().st_size}" for source in sources]
    mark = hashlib.sha256("\n".join(recipe).encode()).hexdigest()[:10]
    target = FOLDER / f"{Path(name).stem}-{mark}{Path(name).suffix}"
    if not target.exists():
        say(f"making {target.name}")
        partial = target.with_name(f"partial-{target.name}")
        ask("ffmpeg", "-nostdin", "-v", "error", "-y", *command, partial)
        partial.rename(target)
        say("")
    return target


def shared(name):
    """One of the real clips."""
    media = Path(os.environ.get("KESTREL_MEDIA_DIR", ROOT.parent / "shared" / "media"))
    source = media / name
    if not source.exists():
        raise Failure(f"there is no {source}: KESTREL_MEDIA_DIR names the folder that has it")
    return source


def clip():
    """30 s of a film in 1080p, H.264 and AAC."""
    source = shared("bunny-720p24-vp8-vorbis.webm")
    command = [
        *("-i", source, "-t", CLIP_SECONDS, "-vf", "scale=1920:1080"),
        *("-c:v", "libx264", "-preset", "fast", "-crf", "18"),
        *("-c:a", "aac", "-b:a", "192k", "-ar", "44100", "-ac", "2", "-movflags", "+faststart"),
    ]
    return made("clip-1080p.mp4", command, [source])


# A span of each real clip that pictures are judged by: animation, old film, a shaken camera, water,
# a noisy tape, a dark film, lines and text.
SPANS = {
    "animation": ("bunny-720p24-vp8-vorbis.webm", 8),
    "film": ("chaplin-360p25-h264-mp3.mp4", 3),
    "camera": ("fire-720p-vfr-h264-aac.mp4", 0),
    "water": ("phone-hlg-1080p30-hevc10-turned.mov", 0),
    "tape": ("mpeg2-mp3.ts", 4),
    "street": ("wmv8-wma2.wmv", 8),
    "lines": ("theora-offset.ogv", 0),
}
SPAN_RATE = 25  # pictures a second, whatever the clip has: only the pictures matter


def span(name, pictures, lines):
    """The pictures of a span without any loss, 8-bit 4:2:0, at a constant rate and of at most so
    many lines."""
    file, start = SPANS[name]
    source = shared(file)
    # Colours are not told: none of the programs is to convert them.
    graph = (
        f"scale=-2:'trunc(min(ih,{lines})/2)*2':flags=area,setsar=1,format=yuv420p,"
        f"setparams=color_primaries=unknown:color_trc=unknown:colorspace=unknown:range=tv,"
        f"setpts=N/{SPAN_RATE}/TB"
    )
    command = [
        *("-noautorotate", "-ss", start, "-i", source, "-map", "0:v:0", "-frames:v", pictures),
        *("-vf", graph, "-r", SPAN_RATE, "-map_metadata", "-1"),
        *("-c:v", "libx264", "-preset", "ultrafast", "-qp", "0", "-g", "1"),
    ]
    return made(f"span-{name}.mkv", command, [source])


def sound():
    """Half a minute of noise and tones without a pause, AAC."""
    graph = "sine=frequency=440:sample_rate=44100[a];anoisesrc=r=44100:a=0.1:seed=1[b];[a][b]amix"
    command = [
        *("-f", "lavfi", "-i", graph, "-t", CLIP_SECONDS, "-ac", "2"),
        *("-c:a", "aac", "-b:a", "192k"),
    ]
    return made("sound.m4a", command)


def mark():
    """A small picture to lay over others."""
    graph = "testsrc2=size=160x90,format=rgba,colorchannelmixer=aa=0.7"
    return made("mark.png", ["-f", "lavfi", "-i", graph, "-frames:v", "1"])


def subtitles():
    """A line of text for every two seconds of the clip."""
    target = FOLDER / "lines.srt"
    lines = [
        f"{i + 1}\n00:00:{2 * i:02},000 --> 00:00:{2 * i + 2:02},000\nThis is line {i + 1}\n"
        for i in range(CLIP_SECONDS // 2)
    ]
    target.write_text("\n".join(lines))
    return target


def large_clip():
    """The clip over and over, 1 GB of it."""
    source = clip()
    repeats = -(-LARGE_BYTES // source.stat().st_size) - 1
    return made("clip-1gb.mp4", ["-stream_loop", repeats, "-i", source, "-c", "copy"], [source])


def disc():
    """A PAL disc whose one title takes 1 GB, and the parts of that title's VOB."""
    source = made("pal.vob", [
        *("-f", "lavfi", "-i", "testsrc2=size=720x576:rate=25:duration=60,noise=alls=12:allf=t"),
        *("-f", "lavfi", "-i", "anoisesrc=sample_rate=48000:duration=60:amplitude=0.1"),
        *("-target", "pal-dvd", "-b:v", "6000k", "-aspect", "16:9"),
    ])  # fmt: skip
    repeats = -(-LARGE_BYTES // source.stat().st_size) - 1
    command = ["-stream_loop", repeats, "-i", source, "-c", "copy", "-target", "pal-dvd"]
    long = made("pal-1gb.vob", command, [source])
    folder = long.with_suffix(".disc")
    if not folder.exists():
        say(f"making {folder.name}")
        partial = folder.with_name(f"partial-{folder.name}")
        shutil.rmtree(partial, ignore_errors=True)
        order = FOLDER / "disc.xml"
        order.write_text(
            "<dvdauthor><vmgm/><titleset><titles><video format='pal' aspect='16:9'/>"
            f"<pgc><vob file='{long}'/></pgc></titles></titleset></dvdauthor>"
        )
        os.environ["VIDEO_FORMAT"] = "PAL"
        ask("dvdauthor", "-o", partial, "-x", order)
        partial.rename(folder)
        say("")
    return folder, sorted(folder.glob("VIDEO_TS/VTS_01_[1-9].VOB"))


def disc_of_many_titles():
    """A disc of 99 titles, the most that there may be, as the tests have it."""
    script = ROOT / "tests" / "fixtures" / "dvd" / "make_disc.py"
    folder = FOLDER / "many.disc"
    if not folder.exists():
        say(f"making {folder.name}")
        partial = folder.with_name(f"partial-{folder.name}")
        shutil.rmtree(partial, ignore_errors=True)
        partial.mkdir()
        ask("python3", script, "many", partial)
        partial.rename(folder)
        say("")
    return folder / "disc.iso"


def two_hours_of_sound():
    """A minute of noise over and over."""
    noise = "anoisesrc=color=pink:sample_rate=44100:seed=1:amplitude=0.5:duration=60"
    minute = made("minute.m4a", ["-f", "lavfi", "-i", noise, "-ac", "2", "-c:a", "aac"])
    repeats = LONG_SECONDS // 60 - 1
    return made("sound-2h.m4a", ["-stream_loop", repeats, "-i", minute, "-c", "copy"], [minute])


def small_clips(extension):
    """A small moving picture with sound, of 2 minutes and of 2 hours."""
    # The sound is noise, because a pure tone sends AAC's encoder into long searches, and FLAC,
    # which has no delay that would move the pictures off the start.
    command = [
        *("-f", "lavfi", "-i", "testsrc2=size=160x120:rate=25"),
        *("-f", "lavfi", "-i", "anoisesrc=color=pink:sample_rate=44100:seed=1:amplitude=0.01"),
        *("-c:v", "libx264", "-preset", "veryfast", "-g", "250", "-c:a", "flac"),
        *("-sample_fmt", "s16", "-ac", "2", "-strict", "-2"),
    ]
    lengths = {"2min": SHORT_SECONDS, "2h": LONG_SECONDS}
    return [
        made(f"small-{name}.{extension}", [*command, "-t", seconds])
        for name, seconds in lengths.items()
    ]


def encoder_settings(path):
    """What x264 says of its settings beside the first picture; "" where it didn't write any."""
    with open(path, "rb") as file, mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ) as data:
        begin = data.find(b"x264 - core")
        if begin < 0:
            return ""
        return data[begin : data.find(b"\0", begin)].decode("ascii", "replace")


def streams(path):
    """[(kind, codec, size, packets)], pictures first."""
    entries = "stream=codec_type,codec_name,width,height,nb_read_packets"
    text = ask("ffprobe", "-v", "error", "-count_packets", "-show_entries", entries,
               "-of", "compact=p=0", path)  # fmt: skip
    found = []
    for line in filter(None, text.splitlines()):
        facts = dict(re.findall(r"(\w+)=([^|]+)", line))
        size = f"{facts['width']}x{facts['height']}" if "width" in facts else ""
        packets = int(facts["nb_read_packets"])
        found.append((facts["codec_type"], facts["codec_name"], size, packets))
    return sorted(found, reverse=True)


def is_same_stream(ours, theirs):
    spare = SPARE_SOUND_PACKETS if ours[0] == "audio" else 0
    return ours[:3] == theirs[:3] and abs(ours[3] - theirs[3]) <= spare


def count_pictures(ours, theirs):
    """The same where the pictures themselves need not be equal."""
    sides = streams(ours), streams(theirs)
    if len(sides[0]) != len(sides[1]) or not all(map(is_same_stream, *sides)):
        raise Failure("the outputs differ:\n  kestrel: {}\n  ffmpeg: {}".format(*sides))
    return f"{sides[0][0][3]} pictures each"


def require_same_work(ours, theirs):
    """Stops when the outputs are not one another's equals; else says what they are."""
    both = "\n  kestrel: {}\n  ffmpeg: {}"
    settings = encoder_settings(ours), encoder_settings(theirs)
    if settings[0] != settings[1]:
        raise Failure("the encoder's settings differ:" + both.format(*settings))
    count = count_pictures(ours, theirs)
    sizes = ours.stat().st_size, theirs.stat().st_size
    if abs(sizes[0] / sizes[1] - 1) > LARGEST_DIFFERENCE:
        raise Failure("the outputs differ in size: kestrel {}, ffmpeg {} bytes".format(*sizes))
    return "{}; {:.2f} and {:.2f} MB written".format(
        count, sizes[0] / 1e6, sizes[1] / 1e6)  # fmt: skip
