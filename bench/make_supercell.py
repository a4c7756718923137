#!/usr/bin/env python3
"""P1 supercell of a small-molecule CIF for the large-cell benchmarks.

Applies the file's symmetry operations to its atom sites, wraps the positions into the cell,
drops positions within 1e-4 (fractional) of an earlier one, repeats the cell n1 x n2 x n3
times and writes a P1 CIF with the single operation x,y,z (six decimals, as the cells in
data/large). The result is scratch data for benchmarks: write it outside the source tree.

  bench/make_supercell.py tests/data/crystals/anthracene.cif 24 36 17 /tmp/anthracene_705k.cif
"""
import re
import sys
from fractions import Fraction


def number(text):
    return float(re.sub(r"\(.*\)", "", text))


def read_cif(path):
    cell, ops, atoms = {}, [], []
    lines = [l.strip() for l in open(path, encoding="utf-8", errors="replace")]
    i = 0
    while i < len(lines):
        line = lines[i]
        if line.startswith("_cell_length_") or line.startswith("_cell_angle_"):
            key, value = line.split()[:2]
            cell[key] = number(value)
        if line == "loop_":
            header = []
            i += 1
            while i < len(lines) and lines[i].startswith("_"):
                header.append(lines[i].split()[0])
                i += 1
            rows = []
            while i < len(lines) and lines[i] and not lines[i].startswith(("_", "loop_", "#")):
                rows.append(lines[i])
                i += 1
            if "_symmetry_equiv_pos_as_xyz" in header or "_space_group_symop_operation_xyz" in header:
                col = [h in ("_symmetry_equiv_pos_as_xyz", "_space_group_symop_operation_xyz")
                       for h in header].index(True)
                for row in rows:
                    fields = re.findall(r"'[^']*'|\S+", row)
                    ops.append(fields[col].strip("'").replace(" ", ""))
            if "_atom_site_fract_x" in header:
                cx, cy, cz = (header.index(k) for k in
                              ("_atom_site_fract_x", "_atom_site_fract_y", "_atom_site_fract_z"))
                ct = header.index("_atom_site_type_symbol")
                for row in rows:
                    f = row.split()
                    atoms.append((f[ct], number(f[cx]), number(f[cy]), number(f[cz])))
            continue
        i += 1
    return cell, ops or ["x,y,z"], atoms


def apply(op, p):
    out = []
    for expr in op.lower().split(","):
        value = Fraction(0)
        for sign, term in re.findall(r"([+-]?)([^+-]+)", expr):
            s = -1 if sign == "-" else 1
            if term in "xyz":
                value += s * Fraction(p["xyz".index(term)])
            else:
                value += s * Fraction(term)
        out.append(float(value))
    return out


def main():
    if len(sys.argv) != 6:
        sys.exit(__doc__)
    src, n1, n2, n3, dest = sys.argv[1], *map(int, sys.argv[2:5]), sys.argv[5]
    cell, ops, atoms = read_cif(src)
    full = []
    for op in ops:
        for sym, *p in atoms:
            f = [v - int(v // 1) for v in apply(op, p)]
            f = [v - 1.0 if v >= 1.0 else v for v in f]
            close = any(max(min(abs(a - b), 1 - abs(a - b)) for a, b in zip(f, g)) < 1e-4
                        for _, g in full)
            if not close:
                full.append((sym, f))
    with open(dest, "w") as out:
        out.write(f"data_supercell_{n1}x{n2}x{n3}\n")
        out.write(f"_chemical_name_common 'P1 supercell of {src.split('/')[-1]}'\n")
        out.write("_symmetry_space_group_name_H-M 'P1'\nloop_\n_symmetry_equiv_pos_as_xyz\nx,y,z\n")
        for key, n in (("a", n1), ("b", n2), ("c", n3)):
            out.write(f"_cell_length_{key} {cell['_cell_length_' + key] * n:.6f}\n")
        for key in ("alpha", "beta", "gamma"):
            out.write(f"_cell_angle_{key} {cell['_cell_angle_' + key]:.6f}\n")
        out.write("loop_\n_atom_site_label\n_atom_site_type_symbol\n"
                  "_atom_site_fract_x\n_atom_site_fract_y\n_atom_site_fract_z\n")
        label = 0
        for i in range(n1):
            for j in range(n2):
                for k in range(n3):
                    for sym, f in full:
                        label += 1
                        out.write(f"{sym}{label} {sym} {(f[0] + i) / n1:.6f} "
                                  f"{(f[1] + j) / n2:.6f} {(f[2] + k) / n3:.6f}\n")
    print(f"{dest}: {label} atoms ({len(full)} per cell)")


main()
