#!/usr/bin/python3
"""Days of a backup, over a way that loses one request in twenty and with programs that are killed:
files change and go up, photos are tagged, a second device brings everything back. Each day must
end with every file and tag where it belongs, and no failure may be one that a lost connection does
not explain. Meanwhile one process works with the engine without a pause, and must not grow.

usage: soak.py BACKUP LOOP PROXY PHOTOS SECONDS     through ctest, which says where the store is
"""
import hashlib
import json
import os
import pathlib
import random
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

LOST = "The connection was lost"
SIZES = [0, 10, 200_000, 9 << 20, 17 << 20]
KILLS = 3
SHORTEST_FOR_MEMORY = 60  # Seconds; quarters of less tell nothing.


class Soak:
    def __init__(self, backup, folder, endpoint):
        self.backup = backup
        self.folder = folder
        self.source = folder / "source"
        self.config = folder / "config.json"
        self.log = folder / "output"
        self.kills = self.losses = 0
        write_configuration(self.config, endpoint, f"soak-{os.getpid()}/")

    def start(self, device, *arguments):
        with open(self.log, "w") as log:
            return subprocess.Popen([self.backup, *arguments, "--state", self.folder / device],
                                    stdout=log, stderr=subprocess.STDOUT)

    def finish(self, device, *arguments):
        """Runs a command until it succeeds: requests of some are sent once only, and a device whose
        tags cannot be read is passed over until the next time."""
        for _ in range(20):
            status = self.start(device, *arguments).wait()
            output = self.log.read_text()
            if status == 0 and "Skipping device" not in output:
                return output
            self.losses += 1
            expect(status in (0, 1) and LOST in output, f"{arguments[0]} ended with {status}: {output}")
        sys.exit(f"{arguments[0]} never succeeds: {output}")

    def kill_and_finish(self, device, *arguments, check=lambda: None):
        for _ in range(random.randrange(KILLS + 1)):
            process = self.start(device, *arguments)
            try:
                process.wait(random.uniform(0, 1))
                break
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
                self.kills += 1
                check()
        return self.finish(device, *arguments)

    def change_files(self):
        for _ in range(8):
            name = self.source / random.choice(["", "folder/"]) / f"{random.randrange(40)}.bin"
            name.write_bytes(random.randbytes(random.choice(SIZES)))

    def live_a_day(self):
        with_store = ["--config", self.config]
        self.change_files()
        self.kill_and_finish("old", "run", self.source, *with_store)
        self.kill_and_finish("old", "tag")
        self.finish("old", "sync", *with_store)
        found = self.finish("old", "search", "cielo")
        expect(found.endswith("photos\n"), "no photos are found")

        wanted = files_in(self.source)
        copy = self.folder / "copy"

        def check():
            present = files_in(copy)
            expect(present.items() <= wanted.items(), "a restored file is not what was backed up")

        self.kill_and_finish("new", "restore", copy, *with_store, check=check)
        expect(files_in(copy) == wanted, "the restored folder is not what was backed up")
        expect("0 files uploaded" in self.finish("new", "run", copy, *with_store), "sent again")
        self.finish("new", "sync", *with_store)
        expect(self.finish("new", "search", "cielo") == found, "the new device finds other photos")
        shutil.rmtree(copy)
        shutil.rmtree(self.folder / "new")


def expect(right, problem):
    if not right:
        sys.exit("PROBLEM: " + problem)


def files_in(folder):
    """Content and modification time of every file, unfinished downloads left out."""
    return {
        str(path.relative_to(folder)):
            (hashlib.md5(path.read_bytes()).digest(), path.stat().st_mtime_ns)
        for path in folder.rglob("*") if path.is_file() and not path.name.startswith(".orvane-")}


def check_growth(rounds, memory):
    """Compares the last quarter of a run with the second: the first is for warming up. Of what is
    allocated the least counts, which what is under way at one moment does not touch."""
    def quarter(number):
        size = len(rounds) // 4
        part = rounds[number * size:(number + 1) * size]
        resident, allocated, descriptors = zip(*part)
        return statistics.mean(resident), min(allocated), statistics.mean(descriptors)

    growth = [after - before for before, after in zip(quarter(1), quarter(3))]
    print("resident MiB, allocated MiB, descriptors by quarter:", *map(quarter, range(4)), sep="\n")
    # Physical memory rises by 8 MiB whenever the buffer of a part comes to lie in another arena,
    # and shows coarse faults only. What is allocated hardly moves: 100 bytes lost by each upload,
    # by each listing or by each exchange of tags come to more than the margin in ten minutes.
    expect(growth[2] <= 4, "descriptors grow")
    expect(not memory or growth[0] <= 20 and growth[1] <= 0.25, "memory grows")


def read_store():
    """Where the store is, into the environment."""
    for line in open(os.environ["ORVANE_OBJECT_STORE"]):
        name, _, value = line.strip().removeprefix("export ").partition("=")
        os.environ[name] = value.strip("'\"")
    os.environ["no_proxy"] = "127.0.0.1"


def write_configuration(file, endpoint, prefix):
    store = os.environ
    file.write_text(json.dumps({
        "bucket": store["S3_BUCKET"], "region": store["S3_REGION"], "endpoint": endpoint,
        "prefix": prefix, "accessKey": store["S3_ACCESS_KEY"],
        "secretKey": store["S3_SECRET_KEY"]}))
    file.chmod(0o600)


def main():
    backup, loop, proxy, photos, seconds = sys.argv[1:]
    end = time.monotonic() + int(seconds)
    read_store()
    seed = random.randrange(1 << 32)
    random.seed(seed)
    port = os.environ["S3_ENDPOINT"].rpartition(":")[2]
    lossy = subprocess.Popen([sys.executable, proxy, port], stdout=subprocess.PIPE, text=True)
    endpoint = "http://127.0.0.1:" + lossy.stdout.readline().strip()
    with tempfile.TemporaryDirectory() as folder:
        rounds = open(folder + "/rounds", "w+")
        soak = Soak(backup, pathlib.Path(folder), endpoint)
        loop = subprocess.Popen([loop, seconds, soak.config, folder + "/loop"], stdout=rounds)
        try:
            (soak.source / "folder").mkdir(parents=True)
            for photo in sorted(pathlib.Path(photos).glob("*.jpg"))[:6]:
                shutil.copy(photo, soak.source)
            days = 0
            while days == 0 or time.monotonic() < end:
                soak.live_a_day()
                days += 1
            expect(loop.wait() == 0, "the process without a pause has failed")
            rounds.seek(0)
            check_growth([[float(word) for word in line.split()] for line in rounds],
                         memory=int(seconds) >= SHORTEST_FOR_MEMORY)
        finally:
            print("seed", seed)
            loop.kill()
            lossy.send_signal(signal.SIGTERM)
    print(f"{days} days, {soak.kills} kills, {soak.losses} commands tried again; on the way",
          lossy.communicate()[0])


if __name__ == "__main__":
    main()
