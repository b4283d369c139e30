#!/usr/bin/env python3
"""Writes src/codec/aac/tables.{h,cc} for the fixed-point AAC-LC decoder.

Usage: python3 scripts/gen_aac_tables.py path/to/tables.json [output_dir]

The Huffman books, band offsets and TNS limits come from tables.json (the
standard's tables as data). The windows, transform twiddles, |q|^(4/3) and
the TNS coefficient values are computed here in double precision and rounded
to the fixed-point formats named beside each table. The output is committed,
so the build needs neither Python nor tables.json.
"""

import json
import math
import os
import sys

POW43_SIZE = 1026  # |q| up to 8191 + 15 (escape plus pulse) needs (q >> 3) <= 1025


def q(x, bits):
    """Round x * 2^bits to the nearest integer, clamped to int32."""
    v = int(math.floor(x * (1 << bits) + 0.5))
    return max(-(1 << 31), min((1 << 31) - 1, v))


def bessel_i0(x):
    total, term, k = 1.0, 1.0, 1
    while term > 1e-30 * total:
        term *= (x / (2 * k)) ** 2
        total += term
        k += 1
    return total


def kbd_rising(n_half, alpha):
    """Rising half of a Kaiser-Bessel-derived window of length 2 * n_half."""
    kaiser = [bessel_i0(math.pi * alpha * math.sqrt(1.0 - ((j - n_half / 2) / (n_half / 2)) ** 2))
              for j in range(n_half + 1)]
    total = sum(kaiser)
    out, acc = [], 0.0
    for n in range(n_half):
        acc += kaiser[n]
        out.append(math.sqrt(acc / total))
    return out


def sine_rising(n_half):
    return [math.sin(math.pi / (2 * n_half) * (n + 0.5)) for n in range(n_half)]


def huffman_tree(codes, lengths):
    """Binary decode tree: entry [2 * node + bit] is a node index, or 0x8000 | leaf."""
    nodes = [[None, None]]
    for index, (code, length) in enumerate(zip(codes, lengths)):
        node = 0
        for i in range(length - 1, -1, -1):
            bit = (code >> i) & 1
            if i == 0:
                assert nodes[node][bit] is None, "codeword collision"
                nodes[node][bit] = 0x8000 | index
            else:
                if nodes[node][bit] is None:
                    nodes.append([None, None])
                    nodes[node][bit] = len(nodes) - 1
                node = nodes[node][bit]
                assert node < 0x8000
    flat = []
    for a, b in nodes:
        assert a is not None and b is not None, "incomplete code"
        flat += [a, b]
    return flat


# Root index bits of each book's lookup table (scalefactor book first).
LOOKUP_BITS = [8, 8, 9, 8, 8, 8, 8, 8, 8, 9, 9, 10]
LOOKUP_LINK = 0x20


def book_values(book, index):
    """The values of codeword `index` of a spectral book, before any sign bits."""
    if book["dimension"] == 4:
        v = [index // 27, (index // 9) % 3, (index // 3) % 3, index % 3]
    else:
        mod = 9 if book["signed"] else book["lav"] + 1
        v = [index // mod, index % mod]
    if book["signed"]:
        v = [x - book["lav"] for x in v]
    return v


def expanded_codes(book, spectral):
    """(code, length, payload) of every word; an unsigned book's words are
    extended by their sign bits (one per nonzero value, in order, 1 negative),
    so that one lookup gives signed values. The payload is the scalefactor
    index, or the values as 6-bit two's complement fields from bit 26 down."""
    out = []
    for index, (code, length) in enumerate(zip(book["codes"], book["lengths"])):
        if not spectral:
            out.append((code, length, index))
            continue
        values = book_values(book, index)
        nonzero = [i for i, x in enumerate(values) if x] if not book["signed"] else []
        for signs in range(1 << len(nonzero)):
            v = list(values)
            for j, i in enumerate(nonzero):
                if (signs >> (len(nonzero) - 1 - j)) & 1:
                    v[i] = -v[i]
            payload = 0
            for i, x in enumerate(v):
                assert -32 <= x < 32
                payload |= (x & 63) << (26 - 6 * i)
            out.append(((code << len(nonzero)) | signs, length + len(nonzero), payload >> 8))
    return out


def lookup_table(codes, bits):
    """Two-level lookup table of a prefix code, indexed by the next `bits` bits.
    Entry: payload << 8 | length (the whole word) for a word, or
    offset << 8 | LOOKUP_LINK | s for a second-level table of 2^s entries at
    `offset`, indexed by the s bits after the first `bits`."""
    root = [None] * (1 << bits)
    long_words = {}
    for code, length, payload in codes:
        assert length < 32 and payload < (1 << 24)
        if length <= bits:
            first = code << (bits - length)
            for i in range(1 << (bits - length)):
                assert root[first + i] is None
                root[first + i] = (payload << 8) | length
        else:
            long_words.setdefault(code >> (length - bits), []).append((code, length, payload))
    table = root
    for prefix in sorted(long_words):
        words = long_words[prefix]
        sub = max(length for _, length, _ in words) - bits
        offset = len(table)
        assert root[prefix] is None and sub < 32
        root[prefix] = (offset << 8) | LOOKUP_LINK | sub
        entries = [None] * (1 << sub)
        for code, length, payload in words:
            rest = code & ((1 << (length - bits)) - 1)
            first = rest << (sub - (length - bits))
            for i in range(1 << (sub - (length - bits))):
                assert entries[first + i] is None
                entries[first + i] = (payload << 8) | length
        table += entries
    assert all(e is not None for e in table), "incomplete code"
    assert len(table) < (1 << 24)
    return table


def fmt(values, per_line=8):
    items = [str(v) for v in values]
    lines = []
    for i in range(0, len(items), per_line):
        lines.append("    " + ", ".join(items[i:i + per_line]) + ",")
    return "\n".join(lines)


def main(argv):
    if len(argv) < 1:
        print(__doc__)
        return 2
    with open(argv[0]) as f:
        t = json.load(f)
    out_dir = argv[1] if len(argv) > 1 else os.path.join(
        os.path.dirname(os.path.abspath(__file__)), "..", "src", "codec", "aac")

    cc = []
    w = cc.append
    w("// Generated by scripts/gen_aac_tables.py; do not edit.")
    w('#include "codec/aac/tables.h"')
    w("")
    w("namespace tmx::aac {")
    w("namespace {")
    w("")

    # Huffman books.
    books = [("Scalefactor", t["scalefactor"])]
    for n in range(1, 12):
        books.append(("Spectral%d" % n, t["spectral"][str(n)]))
    for n, (name, book) in enumerate(books):
        tree = huffman_tree(book["codes"], book["lengths"])
        w("const std::uint32_t k%sCodes[] = {\n%s\n};" % (name, fmt(book["codes"], 10)))
        w("const std::uint8_t k%sLengths[] = {\n%s\n};" % (name, fmt(book["lengths"], 20)))
        w("const std::uint16_t k%sTree[] = {\n%s\n};" % (name, fmt(tree, 12)))
        lookup = lookup_table(expanded_codes(book, n > 0), LOOKUP_BITS[n])
        w("const std::uint32_t k%sLookup[] = {\n%s\n};" % (name, fmt(lookup, 8)))
        w("")

    # Band offsets.
    for kind in ("long", "short"):
        for i, offs in enumerate(t["swb_offset_" + kind]):
            w("const std::uint16_t kSwb%s%d[] = {\n%s\n};" % (kind.capitalize(), i, fmt(offs, 16)))
    w("")
    w("}  // namespace")
    w("")

    w("const std::uint32_t kSampleRates[kNumRates] = {%s};" %
      ", ".join(str(x) for x in t["sampling_frequencies"]))
    w("")
    w("const HuffmanBook kScalefactorBook = {kScalefactorCodes, kScalefactorLengths, kScalefactorTree, "
      "kScalefactorLookup, %d, 1, 60, false, false, %d};" % (len(t["scalefactor"]["codes"]), LOOKUP_BITS[0]))
    w("const HuffmanBook kSpectralBooks[12] = {")
    w("    {nullptr, nullptr, nullptr, nullptr, 0, 0, 0, false, false, 0},")
    for n in range(1, 12):
        b = t["spectral"][str(n)]
        w("    {kSpectral%dCodes, kSpectral%dLengths, kSpectral%dTree, kSpectral%dLookup, %d, %d, %d, %s, %s, %d}," % (
            n, n, n, n, len(b["codes"]), b["dimension"], b["lav"],
            "true" if b["signed"] else "false", "true" if b["escape"] else "false", LOOKUP_BITS[n]))
    w("};")
    w("")
    for kind in ("long", "short"):
        cap = kind.capitalize()
        w("const std::uint8_t kNumSwb%s[kNumRates] = {%s};" % (cap, ", ".join(str(x) for x in t["num_swb_" + kind])))
        w("const std::uint8_t kTnsMaxBands%s[kNumRates] = {%s};" % (
            cap, ", ".join(str(x) for x in t["tns_max_bands_" + kind])))
        w("const std::uint16_t* const kSwbOffset%s[kNumRates] = {%s};" % (
            cap, ", ".join("kSwb%s%d" % (cap, i) for i in range(13))))
    w("")

    # |q|^(4/3), Q18.
    pow43 = [int(math.floor(n ** (4.0 / 3.0) * (1 << 18) + 0.5)) for n in range(POW43_SIZE)]
    assert max(pow43) < (1 << 32)
    w("const std::uint32_t kPow43[kPow43Size] = {\n%s\n};" % fmt(pow43, 8))
    w("")

    # Window rising halves, Q31.
    for name, values in (("kSineLong", sine_rising(1024)), ("kSineShort", sine_rising(128)),
                         ("kKbdLong", kbd_rising(1024, 4)), ("kKbdShort", kbd_rising(128, 6))):
        w("const std::int32_t %s[%d] = {\n%s\n};" % (name, len(values), fmt([q(v, 31) for v in values], 6)))
        w("")

    # FFT twiddles exp(-2 pi i k / 512), k < 256, Q31 (re, im) pairs.
    tw = []
    for k in range(256):
        a = -2 * math.pi * k / 512
        tw += [q(math.cos(a), 31), q(math.sin(a), 31)]
    w("const std::int32_t kFftTwiddle[512] = {\n%s\n};" % fmt(tw, 6))
    w("")
    # Radix-4 twiddles of the stages that build DFTs of L = 16, 64 and 256
    # points, w = exp(-2 pi i / L): w^k for k < L / 4, then w^2k, then w^3k,
    # Q31 (re, im) pairs, the stages one after the other.
    r4 = []
    for size in (16, 64, 256):
        for j in (1, 2, 3):
            for k in range(size // 4):
                a = -2 * math.pi * j * k / size
                r4 += [q(math.cos(a), 31), q(math.sin(a), 31)]
    w("const std::int32_t kFftRadix4Twiddle[%d] = {\n%s\n};" % (len(r4), fmt(r4, 6)))
    w("")
    # Bit reversal of 9-bit indexes.
    rev = [int(format(i, "09b")[::-1], 2) for i in range(512)]
    w("const std::uint16_t kBitReverse512[512] = {\n%s\n};" % fmt(rev, 16))
    w("")
    # DCT-IV pre- and post-twiddles for M = 1024 and 128 coefficients, Q31 pairs:
    # pre exp(-i pi (4p + 1) / 4M), post exp(-i pi p / M), p < M / 2.
    for m, cap in ((1024, "Long"), (128, "Short")):
        pre, post = [], []
        for p in range(m // 2):
            a = -math.pi * (4 * p + 1) / (4 * m)
            pre += [q(math.cos(a), 31), q(math.sin(a), 31)]
            b = -math.pi * p / m
            post += [q(math.cos(b), 31), q(math.sin(b), 31)]
        w("const std::int32_t kPreTwiddle%s[%d] = {\n%s\n};" % (cap, m, fmt(pre, 6)))
        w("const std::int32_t kPostTwiddle%s[%d] = {\n%s\n};" % (cap, m, fmt(post, 6)))
        w("")

    # TNS reflection coefficients, Q31, indexed by the signed value plus 4 (3-bit
    # resolution) or plus 8 (4-bit resolution).
    for bits in (3, 4):
        half = 1 << (bits - 1)
        vals = []
        for c in range(-half, half):
            iq = (half + 0.5) / (math.pi / 2) if c < 0 else (half - 0.5) / (math.pi / 2)
            vals.append(q(math.sin(c / iq), 31))
        w("const std::int32_t kTnsCoef%d[%d] = {\n%s\n};" % (bits, 2 * half, fmt(vals, 4)))
    w("")
    w("}  // namespace tmx::aac")

    with open(os.path.join(out_dir, "tables.cc"), "w") as f:
        f.write("\n".join(cc) + "\n")
    print("wrote", os.path.join(out_dir, "tables.cc"))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
