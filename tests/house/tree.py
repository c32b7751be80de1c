"""The files of a source tree, as the checks of this folder see them.

In a repository these are the files that it keeps or would keep, so that neither a build directory
nor an editor's leftovers fail a check; elsewhere, as in an unpacked archive, all files but those of
a build directory."""
import os
import pathlib
import subprocess

SKIPPED_DIRECTORIES = {".git", "build", "__pycache__"}


def _kept_by_git(root):
    command = ["git", "-C", str(root), "ls-files", "-z", "--cached", "--others",
               "--exclude-standard"]
    listing = subprocess.run(command, stdout=subprocess.PIPE, check=True).stdout
    return [name for name in os.fsdecode(listing).split("\0") if name]


def _found(root):
    for directory, names, files in os.walk(root):
        names[:] = [name for name in names if name not in SKIPPED_DIRECTORIES]
        for name in files:
            yield str((pathlib.Path(directory) / name).relative_to(root))


def files_of(root):
    """The paths of all files below the root, relative to it, in order, with slashes."""
    root = pathlib.Path(root)
    names = _kept_by_git(root) if (root / ".git").exists() else _found(root)
    return sorted({name for name in names if (root / name).is_file()})


def report(faults):
    """Prints the faults; returns what a check ends with."""
    for fault in faults:
        print(fault)
    print(f"{len(faults)} faults" if faults else "no faults")
    return 1 if faults else 0
