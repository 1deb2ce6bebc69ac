"""Wheels for pip: the package with the libraries for one system."""
import base64
import hashlib

from .common import AUTHORS, BINDINGS, SUMMARY, VERSION, licence, tree, write_zip

FOLDER = f"qzhidapi-{VERSION}.dist-info"


def modules():
    return {f"qzhidapi/{name}": data for name, data in tree("python/qzhidapi", "*.py", "py.typed").items()}


def metadata():
    description = (BINDINGS / "python/README.md").read_text()
    return (f"Metadata-Version: 2.1\nName: qzhidapi\nVersion: {VERSION}\nSummary: {SUMMARY}\n"
            f"Author: {AUTHORS}\nLicense: MIT\nRequires-Python: >=3.9\n"
            "Description-Content-Type: text/markdown\nClassifier: License :: OSI Approved :: MIT License\n"
            f"Classifier: Typing :: Typed\n\n{description}").encode()


def make(out, libraries):
    tag = f"py3-none-{libraries.system.wheel}"
    files = {**modules(), **libraries.files("qzhidapi/native"), **libraries.licence_files(FOLDER),
             f"{FOLDER}/METADATA": metadata(), f"{FOLDER}/LICENSE": licence(),
             f"{FOLDER}/WHEEL": f"Wheel-Version: 1.0\nGenerator: qzhidapi\nRoot-Is-Purelib: false\nTag: {tag}\n".encode()}
    record = "".join(f"{name},sha256={_digest(data)},{len(data)}\n" for name, data in files.items())
    files[f"{FOLDER}/RECORD"] = f"{record}{FOLDER}/RECORD,,\n".encode()
    path = out / f"qzhidapi-{VERSION}-{tag}.whl"
    write_zip(path, files)
    return path


def _digest(data):
    return base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
