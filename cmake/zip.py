#!/usr/bin/env python3
"""zip.py FOLDER FILE: packs the contents of a folder. The same contents make the same bytes: times, permissions and the
order in which the system lists files don't matter."""
import pathlib
import sys
import zipfile

folder, target = map(pathlib.Path, sys.argv[1:])
with zipfile.ZipFile(target, "w") as archive:
    for file in sorted(path for path in folder.rglob("*") if path.is_file()):
        entry = zipfile.ZipInfo(file.relative_to(folder).as_posix(), (2026, 1, 1, 0, 0, 0))
        entry.compress_type = zipfile.ZIP_DEFLATED
        entry.external_attr = 0o644 << 16
        archive.writestr(entry, file.read_bytes())
