#!/usr/bin/env python3
"""Makes a wheel of the package as it was built, with the libraries that it needs.

    wheel.py BUILD-FOLDER VERSION TARGET-FOLDER

The same build gives the same bytes. What it prints is the path of the wheel.
"""
import base64
import hashlib
import pathlib
import subprocess
import sys
import sysconfig
import tempfile
import zipfile

LIBRARIES = ("libqimcommon.so.1", "librovcommon.so.1")
SUMMARY = "Packet policy of a network device as typed nodes"


def tag_of(python):
    platform = sysconfig.get_platform().replace("-", "_").replace(".", "_")
    return f"{python}-{python}-{platform}"


def files_of(build):
    """Path in the wheel -> where the file is."""
    found = {f"qim/{path.name}": path for path in sorted((build / "python" / "qim").iterdir())
             if path.is_file()}
    found.update({f"qim/lib/{name}": build / "lib" / name for name in LIBRARIES})
    return found


def content_of(path):
    """Libraries without what only debuggers read."""
    if ".so" not in path.name:
        return path.read_bytes()
    with tempfile.TemporaryDirectory() as work:
        stripped = pathlib.Path(work, "stripped")
        subprocess.run(["strip", "--strip-unneeded", "-o", stripped, path], check=True)
        return stripped.read_bytes()


def main():
    build, version, target = pathlib.Path(sys.argv[1]), sys.argv[2], pathlib.Path(sys.argv[3])
    tag = tag_of(f"cp{sys.version_info.major}{sys.version_info.minor}")
    info = f"qim-{version}.dist-info"
    contents = {name: content_of(path) for name, path in files_of(build).items()}
    contents[f"{info}/METADATA"] = (f"Metadata-Version: 2.1\nName: qim\nVersion: {version}\n"
                                    f"Summary: {SUMMARY}\nRequires-Python: >=3.11\n").encode()
    contents[f"{info}/WHEEL"] = (f"Wheel-Version: 1.0\nGenerator: qim {version}\n"
                                 f"Root-Is-Purelib: false\nTag: {tag}\n").encode()
    record = ""
    for name, data in contents.items():
        digest = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
        record += f"{name},sha256={digest},{len(data)}\n"
    contents[f"{info}/RECORD"] = f"{record}{info}/RECORD,,\n".encode()
    wheel = target / f"qim-{version}-{tag}.whl"
    with zipfile.ZipFile(wheel, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, data in contents.items():
            entry = zipfile.ZipInfo(name, (1980, 1, 1, 0, 0, 0))
            entry.external_attr = 0o644 << 16
            entry.compress_type = zipfile.ZIP_DEFLATED
            archive.writestr(entry, data)
    print(wheel)


if len(sys.argv) != 4:
    sys.exit(__doc__)
main()
