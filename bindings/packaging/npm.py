"""The package for npm: with the libraries for all systems and with koffi, so that it installs without a network."""
import gzip
import io
import json
import tarfile

from .common import EPOCH, PackageError, VERSION, licence, tree

KOFFI = ["koffi", "@koromix/koffi-linux-arm64", "@koromix/koffi-linux-x64", "@koromix/koffi-win32-arm64",
         "@koromix/koffi-win32-x64"]


def make(out, all_libraries, node_modules):
    files = tree("node", "*.js", "*.d.ts", "lib/*.js", "README.md")
    manifest = json.loads(tree("node", "package.json")["package.json"])
    files["package.json"] = json.dumps({**manifest, "bundleDependencies": KOFFI}, indent=2).encode()
    files["LICENSE"] = licence()
    for libraries in all_libraries:
        files.update(libraries.files(f"native/{libraries.system.node}"))
        files.update(libraries.licence_files(f"native/{libraries.system.node}"))
    for name in KOFFI:
        files.update(_bundled(node_modules / name, f"node_modules/{name}"))
    path = out / f"qzhidapi-{VERSION}.tgz"
    path.write_bytes(_tar({f"package/{name}": data for name, data in sorted(files.items())}))
    return path


def _bundled(folder, place):
    if not folder.is_dir():
        raise PackageError(f"{folder} is missing; script/bootstrap native installs it")
    files = {f"{place}/{file.relative_to(folder).as_posix()}": file.read_bytes()
             for file in sorted(folder.rglob("*")) if file.is_file()}
    # The compiled module is there; nothing needs to be built or fetched.
    manifest = json.loads(files[f"{place}/package.json"])
    manifest.pop("scripts", None)
    files[f"{place}/package.json"] = json.dumps(manifest, indent=2).encode()
    return files


def _tar(files):
    plain = io.BytesIO()
    with tarfile.open(fileobj=plain, mode="w", format=tarfile.USTAR_FORMAT) as archive:
        for name, data in files.items():
            entry = tarfile.TarInfo(name)
            entry.size, entry.mtime, entry.mode = len(data), EPOCH, 0o644
            archive.addfile(entry, io.BytesIO(data))
    return gzip.compress(plain.getvalue(), mtime=EPOCH)
