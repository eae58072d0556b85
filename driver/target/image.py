# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The images that boot the virtual machine: an initramfs with busybox and modules, and a disk with the programs."""

import os
import pathlib
import re
import shutil
import subprocess

HERE = pathlib.Path(__file__).resolve().parent
# The modules that the guest loads besides the driver, each with its dependencies.
MODULES = ("virtio_pci", "virtio_blk", "crc32c_generic", "ext4", "9pnet_virtio", "9p")
CROSS_LIBRARIES = pathlib.Path("/usr/aarch64-linux-gnu/lib")
LIBRARIES = ("ld-linux-aarch64.so.1", "libc.so.6", "libm.so.6", "libgcc_s.so.1", "libstdc++.so.6")
STRIP = "aarch64-linux-gnu-strip"
FOLDERS = ("bin", "dev", "etc", "mnt", "modules", "overlay", "proc", "programs", "share", "sys", "tmp")


def module_name(path):
    return path.name.removesuffix(".ko").replace("-", "_")


def depends(path):
    """The modules that a module declares as needed."""
    found = re.search(rb"\0depends=([^\0]*)\0", path.read_bytes())
    return [name.replace("-", "_") for name in found[1].decode().split(",") if name] if found else []


def modules_in_order(tree):
    """The paths of MODULES and their dependencies, each after its own dependencies. Built-in ones have no file."""
    by_name = {module_name(path): path for path in tree.rglob("*.ko")}
    order = []

    def add(name):
        path = by_name.get(name)
        if path is None or path in order:
            return
        for needed in depends(path):
            add(needed)
        order.append(path)

    for name in MODULES:
        add(name)
    return order


def write_script(path, lines):
    path.write_text("\n".join(lines) + "\n")
    path.chmod(0o755)


def make_initramfs(kernel, build, file):
    """kernel: the folder that kernel.sh filled. build: the programs' build folder, a path that they contain."""
    root = file.parent / "initramfs"
    shutil.rmtree(root, ignore_errors=True)
    for folder in FOLDERS:
        (root / folder).mkdir(parents=True)
    shutil.copy(kernel / "busybox", root / "bin/busybox")
    for name in ("init", "emulator"):
        shutil.copy(HERE / "guest" / name, root / name)
        (root / name).chmod(0o755)
    # Test programs start others the way the cross build does: with an emulator, at their place in the build folder.
    (root / "bin/qemu-aarch64-static").symlink_to("/emulator")
    (root / "etc/build").write_text(f"{build}\n")
    (root / "lib").symlink_to("/programs/lib")
    paths = modules_in_order(kernel / "root/lib/modules") + [kernel / "tarn_platform.ko"]
    for path in paths:
        shutil.copy(path, root / "modules")
    (root / "modules/order").write_text("".join(path.name + "\n" for path in paths[:-1]))
    names = subprocess.run(["find", ".", "-print0"], cwd=root, check=True, stdout=subprocess.PIPE).stdout
    packed = subprocess.run(["cpio", "--null", "--create", "--format=newc", "--owner=0:0", "--quiet"], cwd=root,
                            input=names, check=True, stdout=subprocess.PIPE).stdout
    file.write_bytes(packed)


def is_program(path):
    with path.open("rb") as file:
        return path.is_file() and not path.is_symlink() and file.read(4) == b"\x7fELF"


def programs(build):
    """Test programs, tools, examples and libraries of a build, by their paths in it."""
    found = [build / "libtarn.so.1"]
    for folder in ("tests", "driver", "examples", "sim", "tools"):
        for path in sorted((build / folder).rglob("*")):
            inner = "CMakeFiles" in path.parts or path.suffix in (".o", ".a")
            if path.is_file() and not inner and is_program(path):
                found.append(path)
    return [path.relative_to(build) for path in found]


def make_programs_disk(build, file, size_mb=256):
    """A read-only ext4 image with stripped copies of the programs, in the build's own layout, and system libraries."""
    root = file.parent / "programs"
    shutil.rmtree(root, ignore_errors=True)
    (root / "lib").mkdir(parents=True)
    for path in programs(build):
        copy = root / path
        copy.parent.mkdir(parents=True, exist_ok=True)
        subprocess.run([STRIP, "-o", copy, build / path], check=True)
        copy.chmod(0o755)
    for name in LIBRARIES:
        subprocess.run([STRIP, "-o", root / "lib" / name, (CROSS_LIBRARIES / name).resolve()], check=True)
        (root / "lib" / name).chmod(0o755)
    (root / "lib/libtarn.so.1").symlink_to("../libtarn.so.1")
    make_ext4(file, size_mb, root)


def make_ext4(file, size_mb, root=None):
    file.unlink(missing_ok=True)
    command = ["mke2fs", "-q", "-t", "ext4", "-F", "-m", "0"]
    if root is not None:
        command += ["-d", str(root)]
    environment = dict(os.environ, PATH=os.environ.get("PATH", "") + ":/usr/sbin:/sbin")
    subprocess.run(command + [str(file), f"{size_mb}M"], check=True, env=environment,
                   stdout=subprocess.DEVNULL)
