#!/usr/bin/python3
"""Ends the backup program at each of its calls that change a file, before the call and in the midst
of what it writes, and lets each call fail once. Whatever was lost on the way, what was kept before
must still be there, and the same command must come to its end the next time.

usage: crash-points.py BACKUP CRASH PHOTOS     through ctest, which says where the store is
"""
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

from soak import expect, files_in, read_store, write_configuration

HOWS = ["kill", "tear", "fail"]


class Points:
    def __init__(self, backup, crash, folder):
        self.backup, self.crash, self.folder = backup, crash, folder
        self.source = folder / "source"
        self.copy = folder / "copy"
        self.state = folder / "state"
        self.config = folder / "config.json"
        self.counts = {}

    def run(self, *command, **environment):
        done = subprocess.run([self.backup, *command, "--state", self.state], text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              env=os.environ | environment)
        return done.returncode, done.stdout

    def finish(self, *command):
        status, output = self.run(*command)
        expect(status == 0, f"{command[0]} ends with {status}: {output}")
        return output

    def try_every_point(self, name, command, survives, check):
        """From the present state on; leaves the state as the command makes it."""
        before = self.folder / "before"
        shutil.copytree(self.state, before)
        for how in HOWS:
            for at in range(1, 10_000):
                shutil.rmtree(self.state)
                shutil.rmtree(self.copy, ignore_errors=True)
                shutil.copytree(before, self.state)
                status, output = self.run(*command, LD_PRELOAD=self.crash, CRASH_AT=str(at),
                                          CRASH_HOW=how)
                point = f"{name}, {how} at {at}: {output}"
                if how == "fail":
                    expect(status in (0, 1, 2), point)
                survives(point)
                self.finish(*command)
                check(point)
                if (status == 0 and how != "fail") or at == self.counts.get((name, "kill")):
                    break
            self.counts[name, how] = at
        shutil.rmtree(before)


def main():
    backup, crash, photos = sys.argv[1:]
    read_store()
    with tempfile.TemporaryDirectory() as temporary:
        folder = pathlib.Path(temporary)
        points = Points(backup, crash, folder)
        with_store = ["--config", points.config]
        write_configuration(points.config, os.environ["S3_ENDPOINT"], f"crash-{os.getpid()}/")
        points.source.mkdir()
        points.state.mkdir()
        for photo in ["hill.jpg", "brick-wall.jpg"]:
            shutil.copy(pathlib.Path(photos) / photo, points.source)
        (points.source / "large").write_bytes(os.urandom(17 << 20))

        def completed(count):
            def check(point):
                status = points.finish("status")
                expect(f"completed: {count}\n" in status, f"{point}\n{status}")
            return check

        def records(count):
            def check(point):
                lines = points.finish("status").splitlines()
                found = sum(int(line.split()[1]) for line in lines
                            if line.split(":")[0] in ("pending", "uploading", "completed", "failed",
                                                      "retrying"))
                expect(found >= count, f"{point}\n{lines}")
            return check

        run = ["run", points.source, *with_store]
        points.try_every_point("run", run, records(0), completed(3))
        (points.source / "new").write_text("new")
        points.try_every_point("run again", run, records(3), completed(4))

        def finds(point):
            expect("hill.jpg" in points.finish("search", "cielo"), point)

        points.try_every_point("tag", ["tag"], completed(4), finds)
        points.try_every_point("sync", ["sync", *with_store], finds, finds)
        wanted = files_in(points.source)
        shutil.rmtree(points.state)
        points.state.mkdir()

        def whole(point):
            expect(files_in(points.copy).items() <= wanted.items(), point)

        def restored(point):
            expect(files_in(points.copy) == wanted, point)

        restore = ["restore", points.copy, *with_store]
        points.try_every_point("restore", restore, whole, restored)
    for (name, how), count in points.counts.items():
        print(f"{name}: {how} at each of {count - 1} calls")


if __name__ == "__main__":
    main()
