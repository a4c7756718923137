"""Structure files written by kavri_crystal, read by the libraries of the field.

For each crystal, kavri_crystal writes the cell (.xyz, .pdb, .cif, POSCAR, .vasp), a supercell
(.cif), the cluster of molecule 1 (.xyz, .pdb) and molecule 1 alone (.mol). gemmi, ASE and
Open Babel read them back, and each must find the cell, the atom count and the number of
molecules that kavri_crystal reports in its JSON output. A reader that is not installed is
skipped with a message; exit status 77 when none is.

Usage: read_written_files.py KAVRI_CRYSTAL CRYSTAL_DIR
"""
import json
import os
import shutil
import subprocess
import sys
import tempfile

import numpy as np

CRYSTALS = ["anthracene.cif", "tipge_pentacene_pbca.cif"]
failures = []


def check(what, got, want, tol=0.0):
    ok = abs(got - want) <= tol if tol else got == want
    print(f"  {'ok  ' if ok else 'FAIL'} {what}: {got} (expected {want})")
    if not ok:
        failures.append(what)


def check_cell(who, got, want):
    for k, name in enumerate(["a", "b", "c", "alpha", "beta", "gamma"]):
        check(f"{who} cell {name}", round(float(got[k]), 4), round(want[k], 4),
              2e-3 if k < 3 else 2e-2)


def count_molecules(positions, radii, scale=1.15):
    """Connected components of the bond graph (r1 + r2) * scale > d, without periodic images
    (kavri_crystal writes whole molecules)."""
    pos = np.asarray(positions, dtype=float)
    r = np.asarray(radii, dtype=float)
    d = np.linalg.norm(pos[:, None, :] - pos[None, :, :], axis=2)
    bonded = (r[:, None] + r[None, :]) * scale > d
    label = -np.ones(len(pos), dtype=int)
    n = 0
    for start in range(len(pos)):
        if label[start] >= 0:
            continue
        stack = [start]
        label[start] = n
        while stack:
            i = stack.pop()
            for j in np.nonzero(bonded[i] & (label < 0))[0]:
                label[j] = n
                stack.append(j)
        n += 1
    return n


def read_gemmi(path, want):
    import gemmi
    if path.endswith(".cif"):
        st = gemmi.read_small_structure(path)
        cell = st.cell
        sites = st.sites
        pos = [list(cell.orthogonalize(s.fract)) for s in sites]
        check("gemmi atoms", len(sites), want["atoms"])
        check("gemmi molecules",
              count_molecules(pos, [s.element.covalent_r for s in sites]), want["molecules"])
    elif path.endswith(".pdb"):
        st = gemmi.read_structure(path)
        cell = st.cell
        check("gemmi atoms", st[0].count_atom_sites(), want["atoms"])
        check("gemmi molecules (residues)", sum(len(ch) for ch in st[0]), want["molecules"])
    else:
        return
    if want["cell"]:
        check_cell("gemmi", [cell.a, cell.b, cell.c, cell.alpha, cell.beta, cell.gamma],
                   want["cell"])


def read_ase(path, want):
    import ase.io
    from ase.neighborlist import NeighborList, natural_cutoffs
    from scipy.sparse.csgraph import connected_components
    fmt = "vasp" if os.path.basename(path) == "POSCAR" else None
    atoms = ase.io.read(path, format=fmt)
    check("ASE atoms", len(atoms), want["atoms"])
    # ASE's own neighbour list (periodic where the file has a cell: its CIF reader wraps atoms
    # into the cell), bonds within 1.15 times the sum of the covalent radii.
    nl = NeighborList(natural_cutoffs(atoms, mult=1.15), self_interaction=False, bothways=True,
                      skin=0.0)
    nl.update(atoms)
    check("ASE molecules", connected_components(nl.get_connectivity_matrix())[0],
          want["molecules"])
    if "molecule" in atoms.arrays:
        check("ASE molecule column", int(atoms.arrays["molecule"].max()), want["molecules"])
    if want["cell"]:
        check_cell("ASE", atoms.cell.cellpar(), want["cell"])


def obabel(fmt, path, out_format):
    return subprocess.run(["obabel", "-i" + fmt, path, "-o" + out_format], capture_output=True,
                          text=True, stdin=subprocess.DEVNULL, timeout=120).stdout


def read_openbabel(path, want):
    fmt = {"POSCAR": "vasp"}.get(os.path.basename(path), path.rsplit(".", 1)[-1])
    check("Open Babel atoms", int(obabel(fmt, path, "xyz").split("\n")[0]), want["atoms"])
    # One SMILES for the whole file; its disconnected parts are the molecules.
    smiles = obabel(fmt, path, "smi").split()[0]
    check("Open Babel molecules", len(smiles.split(".")), want["molecules"])
    if want["cell"] and fmt in ("cif", "pdb", "vasp"):
        tags = ["_cell_length_a", "_cell_length_b", "_cell_length_c", "_cell_angle_alpha",
                "_cell_angle_beta", "_cell_angle_gamma"]
        values = {l.split()[0]: float(l.split()[1]) for l in obabel(fmt, path, "cif").splitlines()
                  if l.split() and l.split()[0] in tags}
        check_cell("Open Babel", [values.get(t, 0.0) for t in tags], want["cell"])


def available():
    readers = {}
    for name, module in [("gemmi", "gemmi"), ("ASE", "ase.io")]:
        try:
            __import__(module)
            readers[name] = {"gemmi": read_gemmi, "ASE": read_ase}[name]
        except ImportError:
            print(f"SKIPPED: {name} cannot be imported by {sys.executable} "
                  f"(Debian package python3-{name.lower()})")
    if shutil.which("obabel"):
        readers["Open Babel"] = read_openbabel
    else:
        print("SKIPPED: Open Babel (obabel) not found (Debian package openbabel)")
    return readers


def main():
    exe, crystal_dir = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    readers = available()
    if not readers:
        print("SKIPPED: none of gemmi, ASE and Open Babel can be found")
        return 77
    for crystal in CRYSTALS:
        work = tempfile.mkdtemp(prefix="kavri-peers-")
        src = os.path.join(crystal_dir, crystal)

        def run(*args):
            out = subprocess.run([exe, "-json", src, *args], cwd=work, capture_output=True,
                                 text=True, check=True)
            return json.loads(out.stdout)

        report = run("-write", "cell.xyz", "-write", "cell.pdb", "-write", "cell.cif",
                     "-write", "POSCAR", "-write", "cell.vasp")
        run("-supercell", "2", "1", "1", "-write", "super.cif")
        run("-cluster", "1", "-write", "cluster.xyz", "-write", "cluster.pdb",
            "-write", "one.mol")
        c = report["cell"]
        cell = [c["a"], c["b"], c["c"], c["alpha"], c["beta"], c["gamma"]]
        mols = report["molecules"]
        atoms = sum(m["atoms"] for m in mols)
        first = mols[0]["atoms"]
        cluster = 1 + len(mols[0]["neighbours"])
        expected = {
            "cell.xyz": dict(cell=cell, atoms=atoms, molecules=len(mols)),
            "cell.pdb": dict(cell=cell, atoms=atoms, molecules=len(mols)),
            "cell.cif": dict(cell=cell, atoms=atoms, molecules=len(mols)),
            "POSCAR": dict(cell=cell, atoms=atoms, molecules=len(mols)),
            "cell.vasp": dict(cell=cell, atoms=atoms, molecules=len(mols)),
            "super.cif": dict(cell=[2 * cell[0]] + cell[1:], atoms=2 * atoms,
                              molecules=2 * len(mols)),
            "cluster.xyz": dict(cell=None, atoms=cluster * first, molecules=cluster),
            "cluster.pdb": dict(cell=None, atoms=cluster * first, molecules=cluster),
            "one.mol": dict(cell=None, atoms=first, molecules=1),
        }
        for name, want in expected.items():
            for who, reader in readers.items():
                print(f"{crystal} {name} read by {who}")
                try:
                    reader(os.path.join(work, name), want)
                except Exception as e:  # a reader that cannot open the file is a failure
                    print(f"  FAIL {who} could not read {name}: {e!r}")
                    failures.append(f"{who} {name}")
        shutil.rmtree(work)
    print(f"{len(failures)} failure(s)")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
