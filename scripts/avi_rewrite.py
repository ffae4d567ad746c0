#!/usr/bin/env python3
"""Rewrites an AVI file in the shapes that cameras, capture cards, old
software and other muxers leave, to feed the reader's corpus.

The file is read into a small model (the main header, each stream's header
chunks, the movi data chunks in file order with their key-frame flags), then
written out again with fresh indexes in the shape the options ask for:

    avi_rewrite.py IN OUT [options]
    avi_rewrite.py --dump FILE

Only the standard library is used, so the corpus builds on any machine with
python3.
"""

import argparse
import struct
import sys

AVIIF_LIST = 0x1
AVIIF_KEYFRAME = 0x10
AVIIF_NOTIME = 0x100
AVIF_HASINDEX = 0x10
AVIF_MUSTUSEINDEX = 0x20
INDEX_OF_INDEXES = 0
INDEX_OF_CHUNKS = 1
NOT_KEY = 0x80000000


def u32(buf, pos):
    return struct.unpack_from("<I", buf, pos)[0]


def is_ix(fourcc):
    return fourcc[:2] == b"ix" and fourcc[2:].isdigit()


def stream_of(fourcc):
    """Stream number of a movi chunk id such as b'01wb', or None."""
    return int(fourcc[:2]) if fourcc[:2].isdigit() else None


def indexed_stream(fourcc, streams):
    """The stream whose ix## and length count this chunk: its data, not its
    palette changes, and no stream for an id naming none."""
    n = stream_of(fourcc)
    return n if n is not None and n < streams and fourcc[2:] != b"pc" else None


def stream_length(stream, sizes):
    """strh dwLength of chunks of these sizes: samples of fixed-size audio,
    else chunks."""
    if stream.kind == b"auds" and stream.sample_size:
        return sum(sizes) // stream.sample_size
    return len(sizes)


class Chunk:
    def __init__(self, fourcc, data, key=True, flags=None):
        self.fourcc = fourcc
        self.data = data
        self.key = key
        self.flags = flags  # idx1 flags when not derived from key

    def idx1_flags(self):
        if self.flags is not None:
            return self.flags
        return AVIIF_KEYFRAME if self.key else 0


class Stream:
    def __init__(self):
        self.strh = bytearray(56)
        self.strf = b""
        self.extra = []  # (fourcc, data) kept after strf: vprp, strn, strd

    @property
    def kind(self):
        return bytes(self.strh[0:4])

    @property
    def sample_size(self):
        return u32(self.strh, 44)

    @property
    def block_align(self):
        return struct.unpack_from("<H", self.strf, 12)[0] if len(self.strf) >= 14 else 1


class Movie:
    def __init__(self):
        self.avih = bytearray(56)
        self.streams = []
        self.extra = []  # top-level chunks between hdrl and movi (LIST INFO)
        self.chunks = []

    def video_stream(self):
        for n, s in enumerate(self.streams):
            if s.kind == b"vids":
                return n
        return None

    def is_frame(self, chunk, n):
        return stream_of(chunk.fourcc) == n and chunk.fourcc[2:] in (b"dc", b"db")


# ---------------------------------------------------------------- reading

def walk(buf, start, end):
    """Yields (fourcc, pos, size, data start) of the chunks in [start, end);
    a size that runs past the end is cut to it, as a truncated file needs."""
    pos = start
    while pos + 8 <= end:
        fourcc = bytes(buf[pos:pos + 4])
        size = u32(buf, pos + 4)
        data = pos + 8
        if fourcc in (b"RIFF", b"LIST") and size == 0:
            size = end - data  # a capture killed before close left it at 0
        size = min(size, end - data)
        yield fourcc, pos, size, data
        pos = data + size + (size & 1)


def read(path):
    with open(path, "rb") as f:
        buf = memoryview(f.read())
    movie = Movie()
    flags = {}  # data offset -> key frame, from idx1 and ix##
    movis = []
    for fourcc, _, size, data in walk(buf, 0, len(buf)):
        if fourcc != b"RIFF":
            continue
        for sub, pos, ssize, sdata in walk(buf, data + 4, data + size):
            kind = bytes(buf[sdata:sdata + 4])
            if sub == b"LIST" and kind == b"hdrl":
                read_hdrl(buf, sdata + 4, sdata + ssize, movie)
            elif sub == b"LIST" and kind == b"movi":
                movis.append((sdata, sdata + ssize))
            elif sub == b"idx1":
                read_idx1(buf, sdata, ssize, movis[0][0] if movis else 0, flags)
            elif is_ix(sub):
                read_ix(buf, sdata, ssize, flags)
            elif sub != b"JUNK" and not is_ix(sub) and data == 8:
                movie.extra.append(bytes(buf[pos:sdata + ssize]))
    found = []  # (chunk, data offset)
    for start, end in movis:
        read_movi(buf, start + 4, end, found)
    for start, end in movis:
        for sub, _, ssize, sdata in walk(buf, start + 4, end):
            if is_ix(sub):
                read_ix(buf, sdata, ssize, flags)
    video = movie.video_stream()
    for chunk, pos in found:
        # every audio chunk is a key frame, whatever the writer flagged
        chunk.key = flags.get(pos, True) or stream_of(chunk.fourcc) != video
        movie.chunks.append(chunk)
    return movie


def read_hdrl(buf, start, end, movie):
    for fourcc, _, size, data in walk(buf, start, end):
        if fourcc == b"avih":
            movie.avih[:min(size, 56)] = buf[data:data + min(size, 56)]
        elif fourcc == b"LIST" and bytes(buf[data:data + 4]) == b"strl":
            stream = Stream()
            for sub, _, ssize, sdata in walk(buf, data + 4, data + size):
                body = bytes(buf[sdata:sdata + ssize])
                if sub == b"strh":
                    stream.strh[:min(ssize, 56)] = body[:56]
                elif sub == b"strf":
                    stream.strf = body
                elif sub not in (b"indx", b"JUNK"):
                    stream.extra.append((sub, body))
            movie.streams.append(stream)


def read_movi(buf, start, end, found):
    for fourcc, _, size, data in walk(buf, start, end):
        if fourcc == b"LIST":
            read_movi(buf, data + 4, data + size, found)
        elif fourcc != b"JUNK" and not is_ix(fourcc):
            found.append((Chunk(fourcc, buf[data:data + size]), data))


def read_idx1(buf, start, size, movi, flags):
    entries = [struct.unpack_from("<4sIII", buf, start + i) for i in range(0, size - 15, 16)]
    if not entries:
        return
    # Offsets count from the 'movi' tag in most files, from the start of the
    # file in GStreamer's: take the base under which the first entry lands on
    # its own chunk id.
    first_id, _, first_off, _ = entries[0]
    bases = [b for b in (movi, 0) if bytes(buf[b + first_off:b + first_off + 4]) == first_id]
    if not bases:
        return
    base = bases[0]
    for _, fl, off, _ in entries:
        flags[base + off + 8] = bool(fl & AVIIF_KEYFRAME)


def read_ix(buf, start, size, flags):
    _, _, index_type, count, _, base = struct.unpack_from("<HBBI4sQ", buf, start)
    if index_type != INDEX_OF_CHUNKS:
        return
    for i in range(min(count, (size - 24) // 8)):
        off, length = struct.unpack_from("<II", buf, start + 24 + 8 * i)
        flags[base + off] = not length & NOT_KEY


# ---------------------------------------------------------------- reshaping

def drop_frames(movie, frames):
    video = movie.video_stream()
    n = 0
    for chunk in movie.chunks:
        if movie.is_frame(chunk, video):
            if n in frames:
                chunk.data, chunk.key = b"", False
            n += 1


def insert_after_frames(movie, every, make):
    """Puts the chunks make(k) after every `every`-th video frame."""
    video = movie.video_stream()
    out, n = [], 0
    for chunk in movie.chunks:
        out.append(chunk)
        if movie.is_frame(chunk, video):
            if n % every == 0:
                out.extend(make(n // every))
            n += 1
    movie.chunks = out


def palette_change(video):
    def make(k):
        # AVIPALCHANGE: first entry, entry count, flags, then RGBX entries.
        entries = bytes((k * 40 + i * 16) & 0xFF for i in range(16))
        return [Chunk(b"%02dpc" % video, struct.pack("<BBH", 4 * k & 0xFF, 4, 0) + entries,
                      flags=AVIIF_NOTIME)]
    return make


# Ids of no stream, listed in idx1 all the same: an 'ix' that is no index,
# JUNK, letters where the stream number goes, half a stream number.
ODD_IDS = (b"ixyz", b"JUNK", b"zzdc", b"0xwb")


def odd_chunk(k):
    return [Chunk(ODD_IDS[k % len(ODD_IDS)], bytes(range(10 + k)), flags=0)]


def misalign_audio(movie):
    """Cuts each PCM stream again into chunks of block*N+d and block*N-d
    bytes, each placed where the original chunk holding its first byte was."""
    for n, stream in enumerate(movie.streams):
        block = stream.block_align
        if stream.kind != b"auds" or stream.sample_size == 0 or block < 2:
            continue
        mine = [c for c in movie.chunks if stream_of(c.fourcc) == n and c.data]
        if not mine:
            continue
        fourcc = mine[0].fourcc
        data = b"".join(bytes(c.data) for c in mine)
        target = max(1, round(len(data) / len(mine) / block)) * block
        delta = block // 2
        pieces = {id(c): [] for c in mine}
        starts, at = [], 0
        for c in mine:
            starts.append(at)
            at += len(c.data)
        pos, k, owner = 0, 0, 0
        while pos < len(data):
            size = target + (delta if k % 2 == 0 else -delta)
            if len(data) - pos - size < target // 2:
                size = len(data) - pos  # no sliver of a chunk at the end
            while owner + 1 < len(mine) and starts[owner + 1] <= pos:
                owner += 1
            pieces[id(mine[owner])].append(Chunk(fourcc, data[pos:pos + size]))
            pos += size
            k += 1
        movie.chunks = [p for c in movie.chunks for p in pieces.get(id(c), [c])]


def set_ismp(movie, text):
    body = text.encode("ascii") + b"\0"
    body += b"\0" * (len(body) & 1)
    ismp = b"ISMP" + struct.pack("<I", len(text) + 1) + body
    info = b"LIST" + struct.pack("<I", 4 + len(ismp)) + b"INFO" + ismp
    movie.extra = [raw for raw in movie.extra if raw[8:12] != b"INFO"] + [info]


def group_rec(movie):
    """Each video frame with the chunks after it, up to the next frame."""
    video = movie.video_stream()
    groups = []
    for chunk in movie.chunks:
        if not groups or movie.is_frame(chunk, video):
            groups.append([])
        groups[-1].append(chunk)
    return groups


# ---------------------------------------------------------------- writing

class Out:
    def __init__(self):
        self.buf = bytearray()

    def tell(self):
        return len(self.buf)

    def begin(self, fourcc, kind):
        pos = self.tell()
        self.buf += fourcc + b"\0\0\0\0" + kind
        return pos

    def end(self, pos):
        struct.pack_into("<I", self.buf, pos + 4, self.tell() - pos - 8)

    def chunk(self, fourcc, data):
        pos = self.tell()
        self.buf += struct.pack("<4sI", fourcc, len(data))
        self.buf += data
        if len(data) & 1:
            self.buf += b"\0"
        return pos


class Writer:
    def __init__(self, movie, opts):
        self.movie, self.opts = movie, opts
        self.out = Out()
        self.odml = opts.odml is not None
        self.indx = (self.odml or opts.empty_indx) and not opts.no_index
        self.idx1 = []      # (fourcc, flags, header offset, size) of the first RIFF
        self.first = True   # still in the first RIFF
        self.super = [[] for _ in movie.streams]  # (ix offset, ix size, duration)
        self.chunk_ends = []  # file offset after each movi data chunk
        self.riffs, self.movis = [], []

    def length(self, n, chunks):
        sizes = [len(c.data) for c in chunks if indexed_stream(c.fourcc, len(self.movie.streams)) == n]
        return stream_length(self.movie.streams[n], sizes)

    def chunk_id(self, n):
        for c in self.movie.chunks:
            if indexed_stream(c.fourcc, len(self.movie.streams)) == n:
                return c.fourcc
        return b"%02d" % n + {b"vids": b"dc", b"auds": b"wb"}.get(self.movie.streams[n].kind, b"xx")

    def write(self):
        movie, opts, out = self.movie, self.opts, self.out
        units = group_rec(movie) if opts.rec else [[c] for c in movie.chunks]
        riff = out.begin(b"RIFF", b"AVI ")
        hdrl = out.begin(b"LIST", b"hdrl")
        self.avih = out.chunk(b"avih", movie.avih) + 8
        self.indx_at = []
        # Room for a super index entry per RIFF, however many come, the way
        # writers reserve it before they know; the rest stays zero.
        capacity = len(movie.chunks) + 1
        for n, stream in enumerate(movie.streams):
            strl = out.begin(b"LIST", b"strl")
            strh = stream.strh[:48] if opts.strh48 else stream.strh
            stream.strh_at = out.chunk(b"strh", strh) + 8
            out.chunk(b"strf", stream.strf)
            if self.indx:
                self.indx_at.append(out.chunk(b"indx", bytes(24 + 16 * capacity)) + 8)
            for fourcc, data in stream.extra:
                out.chunk(fourcc, data)
            out.end(strl)
        if opts.hdrl_junk:
            out.chunk(b"JUNK", bytes(opts.hdrl_junk))
        if self.indx:
            odml = out.begin(b"LIST", b"odml")
            self.dmlh = out.chunk(b"dmlh", bytes(4 if opts.dmlh_short else 248)) + 8
            out.end(odml)
        out.end(hdrl)
        for raw in movie.extra:
            out.buf += raw + b"\0" * (len(raw) & 1)
        if opts.junk_after_hdrl:
            out.chunk(b"JUNK", bytes(opts.junk_after_hdrl))
        self.riffs.append(riff)
        self.open_movi()
        if opts.movi_padding:
            out.chunk(b"JUNK", bytes(opts.movi_padding))
        first_riff_chunks = []
        for unit in units:
            if self.odml and self.ix_pending() and self.would_pass(unit):
                self.close_riff()
                self.riffs.append(out.begin(b"RIFF", b"AVIX"))
                self.open_movi()
            if self.first:
                first_riff_chunks += unit
            self.write_unit(unit)
        self.close_riff()
        self.patch_headers(first_riff_chunks, units)
        if opts.stale_sizes:
            for pos in self.riffs + self.movis:
                struct.pack_into("<I", out.buf, pos + 4, 0)
        if opts.cut is not None:
            del out.buf[opts.cut:]
        elif opts.cut_after_chunk is not None:
            del out.buf[self.chunk_ends[opts.cut_after_chunk - 1]:]
        return out.buf

    def open_movi(self):
        self.movi = self.out.begin(b"LIST", b"movi")
        self.movis.append(self.movi)
        self.ix = {}  # stream -> [(data offset, size, key, id)] in this RIFF

    def ix_pending(self):
        return any(self.ix.values())

    def would_pass(self, unit):
        size = self.out.tell() - self.riffs[-1]
        size += sum(8 + len(c.data) + (len(c.data) & 1) for c in unit)
        size += 12 if self.opts.rec else 0
        counts = {n: len(e) for n, e in self.ix.items()}
        for c in unit:
            n = indexed_stream(c.fourcc, len(self.movie.streams))
            if n is not None:
                counts[n] = counts.get(n, 0) + 1
        if not self.opts.no_index:
            size += sum(32 + 8 * k for k in counts.values() if k)
            if self.first:
                size += 8 + 16 * (len(self.idx1) + len(unit) + (1 if self.opts.rec else 0))
        return size > self.opts.odml

    def write_unit(self, unit):
        out = self.out
        rec = None
        if self.opts.rec:
            rec = out.begin(b"LIST", b"rec ")
            self.index1(b"rec ", AVIIF_LIST, rec, 0)
        for c in unit:
            pos = out.chunk(c.fourcc, c.data)
            self.chunk_ends.append(out.tell())
            self.index1(c.fourcc, c.idx1_flags(), pos, len(c.data))
            n = indexed_stream(c.fourcc, len(self.movie.streams))
            if n is not None:
                self.ix.setdefault(n, []).append((pos + 8, len(c.data), c.key, c.fourcc))
        if rec is not None:
            out.end(rec)
            if self.first:
                # the list's own entry carries its size, known only now
                fourcc, fl, pos, _ = self.idx1[-len(unit) - 1]
                self.idx1[-len(unit) - 1] = (fourcc, fl, pos, u32(out.buf, rec + 4))

    def index1(self, fourcc, flags, pos, size):
        if self.first:
            self.idx1.append((fourcc, flags, pos, size))

    def close_riff(self):
        out, opts = self.out, self.opts
        if self.odml and not opts.no_index:
            for n in sorted(self.ix):
                entries = self.ix[n]
                pos = out.tell()
                body = struct.pack("<HBBI4sQI", 2, 0, INDEX_OF_CHUNKS, len(entries),
                                   entries[0][3], self.movi, 0)
                for data_pos, size, key, _ in entries:
                    body += struct.pack("<II", data_pos - self.movi, size | (0 if key else NOT_KEY))
                out.chunk(b"ix%02d" % n, body)
                duration = stream_length(self.movie.streams[n], [e[1] for e in entries])
                self.super[n].append((pos, out.tell() - pos, duration))
        out.end(self.movi)
        if self.first and not opts.no_index:
            # relative offsets count from the 'movi' tag; GStreamer writes them
            # from the start of the file
            base = 0 if opts.idx1 == "absolute" else self.movi + 8
            body = b"".join(struct.pack("<4sIII", f, fl, pos - base, size)
                            for f, fl, pos, size in self.idx1)
            out.chunk(b"idx1", body)
        out.end(self.riffs[-1])
        self.first = False

    def patch_headers(self, first_riff_chunks, units):
        movie, opts, buf = self.movie, self.opts, self.out.buf
        video = movie.video_stream()
        total = self.length(video, movie.chunks) if video is not None else 0
        in_first = self.length(video, first_riff_chunks) if video is not None else 0
        biggest = 0
        for n, stream in enumerate(movie.streams):
            mine = [len(c.data) for c in movie.chunks if stream_of(c.fourcc) == n]
            largest = max(mine, default=0)
            biggest = max(biggest, largest)
            length = 0 if opts.zero_lengths else self.length(n, movie.chunks)
            struct.pack_into("<II", buf, stream.strh_at + 32, length, largest)
        if opts.rec:
            biggest = max(biggest, max(sum(8 + len(c.data) + (len(c.data) & 1) for c in u) + 4
                                       for u in units))
        flags = u32(buf, self.avih + 12) & ~(AVIF_HASINDEX | AVIF_MUSTUSEINDEX)
        if not opts.no_index:
            flags |= AVIF_HASINDEX
        struct.pack_into("<I", buf, self.avih + 12, flags)
        struct.pack_into("<I", buf, self.avih + 16, 0 if opts.zero_lengths else in_first)
        struct.pack_into("<I", buf, self.avih + 24, len(movie.streams))
        struct.pack_into("<I", buf, self.avih + 28, biggest)
        if self.indx:
            struct.pack_into("<I", buf, self.dmlh, total if opts.dmlh_total is None else opts.dmlh_total)
            for n, pos in enumerate(self.indx_at):
                entries = self.super[n]
                struct.pack_into("<HBBI4s", buf, pos, 4, 0, INDEX_OF_INDEXES, len(entries),
                                 self.chunk_id(n))
                for i, entry in enumerate(entries):
                    struct.pack_into("<QII", buf, pos + 24 + 16 * i, *entry)


# ---------------------------------------------------------------- dumping

def dump(path, out=sys.stdout):
    with open(path, "rb") as f:
        buf = memoryview(f.read())
    print(f"{path}: {len(buf)} bytes", file=out)
    dump_level(buf, 0, len(buf), 0, out, movi=None)


def dump_level(buf, start, end, depth, out, movi):
    pad = "  " * depth
    for fourcc, pos, size, data in walk(buf, start, end):
        name = fourcc.decode("latin-1")
        stated = u32(buf, pos + 4)
        note = "" if stated == size else f" (stated {stated})"
        if fourcc in (b"RIFF", b"LIST"):
            kind = bytes(buf[data:data + 4])
            print(f"{pad}{pos:>10} {name} '{kind.decode('latin-1')}' {size}{note}", file=out)
            inner_movi = data if kind == b"movi" else movi
            if kind == b"movi" or kind == b"rec ":
                dump_movi(buf, data + 4, data + size, depth + 1, out, inner_movi)
            else:
                dump_level(buf, data + 4, data + size, depth + 1, out, inner_movi)
            if kind == b"movi":
                movi = data
            continue
        print(f"{pad}{pos:>10} {name} {size}{note}{describe(fourcc, buf, data, size, movi)}", file=out)


def dump_movi(buf, start, end, depth, out, movi):
    pad = "  " * depth
    for fourcc, pos, size, data in walk(buf, start, end):
        if fourcc == b"LIST":
            kind = bytes(buf[data:data + 4]).decode("latin-1")
            print(f"{pad}{pos:>10} LIST '{kind}' {size}", file=out)
            dump_movi(buf, data + 4, data + size, depth + 1, out, movi)
        else:
            print(f"{pad}{pos:>10} {fourcc.decode('latin-1')} {size}"
                  f"{describe(fourcc, buf, data, size, movi)}", file=out)


def describe(fourcc, buf, data, size, movi):
    if fourcc == b"avih" and size >= 40:
        f = struct.unpack_from("<10I", buf, data)
        return f" usec/frame={f[0]} flags=0x{f[3]:x} frames={f[4]} streams={f[6]} buffer={f[7]} {f[8]}x{f[9]}"
    if fourcc == b"strh" and size >= 48:
        kind, handler = bytes(buf[data:data + 4]), bytes(buf[data + 4:data + 8])
        scale, rate, start, length, sugg, _, sample = struct.unpack_from("<7I", buf, data + 20)
        return (f" {kind.decode('latin-1')}/{handler.decode('latin-1')} rate={rate}/{scale}"
                f" start={start} length={length} buffer={sugg} samplesize={sample}")
    if fourcc == b"dmlh" and size >= 4:
        return f" frames={u32(buf, data)}"
    if fourcc == b"indx" and size >= 24:
        per, sub, kind, count, cid = struct.unpack_from("<HBBI4s", buf, data)
        rows = [struct.unpack_from("<QII", buf, data + 24 + 16 * i)
                for i in range(min(count, (size - 24) // 16))]
        return (f" type={kind} in-use={count} id={cid.decode('latin-1')} "
                + " ".join(f"[{o} {s} {d}]" for o, s, d in rows))
    if is_ix(fourcc) and size >= 24:
        _, _, kind, count, cid, base = struct.unpack_from("<HBBI4sQ", buf, data)
        rows = [struct.unpack_from("<II", buf, data + 24 + 8 * i)
                for i in range(min(count, (size - 24) // 8))]
        return (f" type={kind} entries={count} id={cid.decode('latin-1')} base={base} "
                + " ".join(f"[{o} {s & ~NOT_KEY}{'' if s & NOT_KEY else 'K'}]" for o, s in rows))
    if fourcc == b"idx1":
        rows = [struct.unpack_from("<4sIII", buf, data + i) for i in range(0, size - 15, 16)]
        text = [f"{f.decode('latin-1')}:{o}+{s}/0x{fl:x}" for f, fl, o, s in rows]
        return f" entries={len(rows)}\n      " + "\n      ".join(
            " ".join(text[i:i + 6]) for i in range(0, len(text), 6))
    return ""


# ---------------------------------------------------------------- command line

def frame_list(text):
    return {int(x) for x in text.split(",") if x}


def main(argv):
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("input")
    p.add_argument("output", nargs="?")
    p.add_argument("--dump", action="store_true", help="print the chunk tree of INPUT")
    add = p.add_argument
    add("--idx1", choices=("relative", "absolute"), default="relative",
        help="idx1 offsets from the 'movi' tag, or from the start of the file")
    add("--movi-padding", type=int, default=0, metavar="N", help="a JUNK of N bytes first in movi")
    add("--rec", action="store_true", help="each frame and the chunks after it in a LIST rec")
    add("--drop-frames", type=frame_list, default=set(), metavar="I,J,...",
        help="these video frames become empty chunks")
    add("--palette-changes", action="store_true", help="xxpc chunks between frames")
    add("--odd-ids", action="store_true", help="chunks of ids no stream owns, between frames")
    add("--no-index", action="store_true", help="no idx1, indx or ix##")
    add("--cut", type=int, metavar="BYTES", help="truncate the file at BYTES")
    add("--cut-after-chunk", type=int, metavar="K", help="truncate the file after the K-th movi chunk")
    add("--stale-sizes", action="store_true", help="RIFF and movi sizes of 0")
    add("--hdrl-junk", type=int, default=0, metavar="N", help="a JUNK of N bytes in hdrl")
    add("--junk-after-hdrl", type=int, default=0, metavar="N", help="a JUNK of N bytes before movi")
    add("--strh48", action="store_true", help="strh without rcFrame")
    add("--zero-lengths", action="store_true", help="strh dwLength and avih dwTotalFrames of 0")
    add("--odml", type=int, metavar="RIFFSIZE", help="OpenDML, a RIFF AVIX each RIFFSIZE bytes")
    add("--dmlh-total", type=int, metavar="N", help="dmlh dwTotalFrames N")
    add("--dmlh-short", action="store_true", help="a dmlh of dwTotalFrames only")
    add("--empty-indx", action="store_true", help="indx and dmlh, but every index in idx1")
    add("--misalign-audio", action="store_true", help="PCM chunks that end inside a block")
    add("--ismp", metavar="TEXT", help="the INFO list holds only ISMP TEXT, the first frame's timecode label")
    opts = p.parse_args(argv)
    if opts.dump:
        try:
            dump(opts.input)
        except BrokenPipeError:  # read through head
            sys.stderr.close()
        return 0
    if not opts.output:
        p.error("OUTPUT is needed unless --dump")
    movie = read(opts.input)
    if movie.video_stream() is None and (opts.drop_frames or opts.rec or opts.palette_changes or opts.odd_ids):
        p.error("this shape needs a video stream")
    if opts.misalign_audio:
        misalign_audio(movie)
    if opts.ismp is not None:
        set_ismp(movie, opts.ismp)
    if opts.drop_frames:
        drop_frames(movie, opts.drop_frames)
    if opts.palette_changes:
        insert_after_frames(movie, 4, palette_change(movie.video_stream()))
    if opts.odd_ids:
        insert_after_frames(movie, 3, odd_chunk)
    data = Writer(movie, opts).write()
    with open(opts.output, "wb") as f:
        f.write(data)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
