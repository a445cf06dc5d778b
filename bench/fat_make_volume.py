#!/usr/bin/env python3
"""Builds a FAT32 benchmark volume with many directory entries, quickly.

mkfs.vfat formats the image; the folders and files are then written straight into it (entries
with long names and correct checksums, one cluster of data per file, FAT chains in both FATs),
because filling tens of thousands of files through mtools takes hours. Every tenth file of the
first ten folders is deleted afterwards the way DOS tools do it (0xE5 on the entries, chain
freed).

Usage: bench/fat_make_volume.py OUT.img [--folders 100] [--files 520]
"""
import argparse
import os
import struct
import subprocess


def lfn_checksum(short11):
    s = 0
    for b in short11:
        s = (((s & 1) << 7) + (s >> 1) + b) & 0xFF
    return s


def entries_for(name, short11, attr, cluster, size, date=0x5A21):
    units = [ord(c) for c in name] + [0]
    while len(units) % 13:
        units.append(0xFFFF)
    pieces = [units[i:i + 13] for i in range(0, len(units), 13)]
    chk = lfn_checksum(short11)
    out = b""
    for k in range(len(pieces) - 1, -1, -1):
        p = pieces[k]
        seq = (k + 1) | (0x40 if k == len(pieces) - 1 else 0)
        out += (bytes([seq]) + struct.pack("<5H", *p[0:5]) + bytes([0x0F, 0, chk]) +
                struct.pack("<6H", *p[5:11]) + b"\0\0" + struct.pack("<2H", *p[11:13]))
    out += short11 + bytes([attr, 0, 0]) + struct.pack("<HHHHHHHI", 0, date, date, cluster >> 16, 0, date,
                                                       cluster & 0xFFFF, size)
    return out


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("out")
    ap.add_argument("--folders", type=int, default=100)
    ap.add_argument("--files", type=int, default=520)
    a = ap.parse_args()
    size_mb = max(64, (a.folders * a.files * 512 * 15 // 10) >> 20)
    if os.path.exists(a.out):
        os.remove(a.out)
    subprocess.run(["mkfs.vfat", "-C", "-F", "32", "-s", "1", "-n", "BENCH", a.out, str(size_mb * 1024)],
                   check=True, stdout=subprocess.DEVNULL)
    with open(a.out, "r+b") as f:
        boot = f.read(512)
        bps, spc, reserved, nfats = struct.unpack_from("<HBHB", boot, 11)
        fatsz = struct.unpack_from("<I", boot, 36)[0]
        data = reserved + nfats * fatsz
        cb = bps * spc
        fat = bytearray(fatsz * bps)
        f.seek(reserved * bps)
        fat[:] = f.read(len(fat))
        nxt = [3]

        def alloc(n):
            first = nxt[0]
            for i in range(n):
                struct.pack_into("<I", fat, 4 * (first + i), first + i + 1 if i + 1 < n else 0x0FFFFFFF)
            nxt[0] += n
            return first

        def off(c):
            return (data + (c - 2) * spc) * bps

        root = b""
        for d in range(a.folders):
            fname = "Folder number %03d with a long name" % d
            body = bytearray()
            deleted = []
            for i in range(a.files):
                name = "Document file %04d with a long name.txt" % i
                short = ("D%03d%04d" % (d % 1000, i)).encode() + b"TXT"
                c = alloc(1)
                f.seek(off(c))
                f.write((name + "\n").encode().ljust(cb, b"."))
                e = entries_for(name, short, 0x20, c, len(name) + 1)
                if d < 10 and i % 10 == 0:
                    deleted.append((len(body), len(e), c))
                body += e
            need = 64 + len(body)
            nclusters = (need + cb - 1) // cb
            dc = alloc(nclusters)
            dots = (b".          " + bytes([0x10, 0, 0]) + struct.pack("<HHHHHHHI", 0, 0x5A21, 0x5A21, dc >> 16, 0,
                                                                          0x5A21, dc & 0xFFFF, 0) +
                    b"..         " + bytes([0x10, 0, 0]) + struct.pack("<HHHHHHHI", 0, 0x5A21, 0x5A21, 0, 0, 0x5A21,
                                                                          0, 0))
            block = bytearray((dots + body).ljust(nclusters * cb, b"\0"))
            for at, length, c in deleted:
                for k in range(0, length, 32):
                    block[64 + at + k] = 0xE5
                struct.pack_into("<I", fat, 4 * c, 0)
            f.seek(off(dc))
            f.write(block)
            root += entries_for(fname, ("F%07d" % d).encode() + b"   ", 0x10, dc, 0)
        # The root folder (cluster 2) grows by a chain of its own.
        rc = (len(root) + 64 + cb - 1) // cb
        chain = [2] + [alloc(1) for _ in range(rc - 1)]
        for k, c in enumerate(chain):
            struct.pack_into("<I", fat, 4 * c, chain[k + 1] if k + 1 < len(chain) else 0x0FFFFFFF)
        f.seek(off(2))
        label = f.read(32)
        blob = (label + root).ljust(rc * cb, b"\0")
        for k, c in enumerate(chain):
            f.seek(off(c))
            f.write(blob[k * cb:(k + 1) * cb])
        for n in range(nfats):
            f.seek((reserved + n * fatsz) * bps)
            f.write(fat)
    print("%s: %d folders, %d files (%d deleted)" % (a.out, a.folders, a.folders * a.files,
                                                    min(a.folders, 10) * ((a.files + 9) // 10)))


if __name__ == "__main__":
    main()
