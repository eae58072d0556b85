# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The virtual machine: starts it, follows its console, ends it."""

import pathlib
import queue
import shutil
import subprocess
import threading
import time


class Hang(Exception):
    """An expected line did not appear on the console."""


class Machine:
    """A machine that runs `job`, a script, and shares a folder with it. Ends at the end of its scope at the latest."""

    def __init__(self, folder, job, prepare=None, overlay=None, memory_mb=1024, interactive=False):
        """folder: holds vmlinuz, initramfs.cpio, programs.ext4; the share and the console's log are created there.
        prepare: called with the share's folder before the start.
        overlay: the disk image of /overlay, which the job mounts as /dev/vdb."""
        self.folder = pathlib.Path(folder)
        self.share = self.folder / "share"
        shutil.rmtree(self.share, ignore_errors=True)
        self.share.mkdir()
        (self.share / "job").write_text(job)
        if prepare is not None:
            prepare(self.share)
        self.lines = []  # of the console, up to now
        self._new_lines = queue.Queue()
        command = ["qemu-system-aarch64", "-M", "virt", "-cpu", "cortex-a57", "-smp", "2", "-m", str(memory_mb), "-nographic",
                   "-no-reboot", "-nic", "none", "-kernel", "vmlinuz", "-initrd", "initramfs.cpio",
                   "-append", "console=ttyAMA0 panic=-1 quiet loglevel=4 printk.devkmsg=on mitigations=off",
                   "-drive", "file=programs.ext4,format=raw,if=virtio,readonly=on",
                   "-virtfs", "local,path=share,mount_tag=share,security_model=none"]
        if overlay is not None:
            command += ["-drive", f"file={overlay},format=raw,if=virtio,cache=writeback"]
        pipes = {} if interactive else {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE,
                                        "stderr": subprocess.STDOUT}
        self.started = time.monotonic()
        self.process = subprocess.Popen(command, cwd=self.folder, **pipes)
        if not interactive:
            threading.Thread(target=self._follow, daemon=True).start()

    def _follow(self):
        with (self.folder / "console.log").open("ab") as log:
            for line in self.process.stdout:
                log.write(line)
                log.flush()
                text = line.decode("utf-8", "replace").rstrip("\r\n")
                self._new_lines.put(text)
        self._new_lines.put(None)

    def next_line(self, deadline):
        """The next line of the console; None at its end."""
        try:
            line = self._new_lines.get(timeout=max(0.001, deadline - time.monotonic()))
        except queue.Empty:
            raise Hang(f"the machine says nothing more; its last line: {self.lines[-1:]}") from None
        if line is not None:
            self.lines.append(line)
        return line

    def wait_for_line(self, beginning, limit_s):
        """The line with this beginning."""
        deadline = time.monotonic() + limit_s
        while (line := self.next_line(deadline)) is not None:
            if line.startswith(beginning):
                return line
        raise Hang(f"the machine ended before it said '{beginning}'")

    def wait_for_end(self, limit_s, on_line=None):
        deadline = time.monotonic() + limit_s
        while (line := self.next_line(deadline)) is not None:
            if on_line is not None:
                on_line(line)

    def cut_power(self):
        self.process.kill()
        self.process.wait()

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        if self.process.poll() is None:
            self.cut_power()
