# The Python module end to end: the sample device's library as `zqcore` shows it, compared with
# `zqpod library --json` (an independent reading through the tool); files, copies and covers
# against the files on the device; the framework's errors; and a simulated iPhone arriving and
# leaving through the real libimobiledevice client.
#
# Run by ctest: PYTHONPATH points at build/python, ZQ_BUILD at the build folder.

import json
import os
import struct
import subprocess

import pytest

BUILD = os.environ.get("ZQ_BUILD", "build")
SERIAL = "F2LZK0PYTEST"


@pytest.fixture(scope="session")
def simulator(tmp_path_factory):
    # Started before the module first looks for devices, which reads USBMUXD_SOCKET_ADDRESS once.
    socket = tmp_path_factory.mktemp("usbmuxd") / "socket"
    process = subprocess.Popen([os.path.join(BUILD, "zq-device-sim"), "--listen", "UNIX:%s" % socket],
                               stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1)
    assert process.stdout.readline().startswith("listening")
    os.environ["USBMUXD_SOCKET_ADDRESS"] = "UNIX:%s" % socket

    def command(line):
        process.stdin.write(line + "\n")
        reply = process.stdout.readline().strip()
        assert reply == "ok", reply

    yield command
    process.stdin.close()
    process.wait(timeout=10)


@pytest.fixture(scope="session")
def zqcore(simulator):
    import zqcore
    return zqcore


def make_sample(folder, *options, serial=None):
    subprocess.run([os.path.join(BUILD, "zq-make-sample"), *options, str(folder)], check=True,
                   stdout=subprocess.DEVNULL)
    if serial:  # a device of its own: a known serial number gives back the library already loaded
        sysinfo = os.path.join(folder, "iPod_Control", "Device", "SysInfo")
        with open(sysinfo) as file:
            text = file.read()
        with open(sysinfo, "w") as file:
            file.write(text.replace("8K9281QJY5N", serial))
    return str(folder)


@pytest.fixture(scope="session")
def sample(tmp_path_factory):
    return make_sample(tmp_path_factory.mktemp("ipod"))


def zqpod_json(device):
    output = subprocess.run([os.path.join(BUILD, "zqpod"), "library", device, "--json"], check=True,
                            stdout=subprocess.PIPE, text=True).stdout
    return json.loads(output)


TRACK_FIELDS = {"title": "title", "artist": "artist", "album": "album", "album_artist": "albumArtist",
                "genre": "genre", "composer": "composer", "comment": "comment", "file_path": "filePath",
                "size": "fileSize", "track_number": "trackNumber", "disc_number": "discNumber",
                "year": "year", "rating": "rating", "play_count": "playCount", "dbid": "dbid",
                "compilation": "compilation", "sample_rate": "sampleRate"}


def as_seen(library):
    return ((library.name, library.serial),
            [{"id": t.id, **{json_name: getattr(t, name) for name, json_name in TRACK_FIELDS.items()},
              "trackLength": round(t.duration * 1000),
              "dateAdded": t.date_added.strftime("%Y-%m-%dT%H:%M:%SZ")} for t in library.tracks],
            [(p.kind, p.name, p.id, [t.id for t in p]) for p in library.playlists])


def as_reported(report):
    return ((report["name"], report["serialNumber"]),
            [{"id": t["trackID"], **{json_name: t[json_name] for json_name in TRACK_FIELDS.values()},
              "trackLength": t["trackLength"], "dateAdded": t["dateAdded"]} for t in report["tracks"]],
            [(p["kind"], p["name"], p["playlistID"], p["trackIDs"]) for p in report["playlists"]])


def test_library_as_zqpod_reports_it(zqcore, sample):
    device = sample
    # --- README: Python
    library = zqcore.open(device)
    print(library.name, library.serial, len(library.tracks), "tracks")
    for playlist in library.playlists:
        print(playlist.kind, playlist.name)
        for track in playlist:
            print("  %s - %s (%.1f s)" % (track.artist, track.title, track.duration))
    # --- end
    assert as_seen(library) == as_reported(zqpod_json(sample))
    assert library.model_type == 11
    assert library.library_source == "iTunesDB" and library.load_warnings == []
    model = library.model                          # the sample writer's SysInfo says "ModelNumStr: xB029"
    assert (model.number, model.name, model.generation, model.capacity, model.colour) == \
        ("MB029", "iPod classic", "6th generation", "80 GB", "silver")
    assert model.display_name == zqpod_json(sample)["model"]["displayName"] == \
        "iPod classic (6th generation), 80 GB, silver"
    assert zqcore.open(sample) is library          # the same device gives the same object


def test_a_device_without_a_library_says_so(zqcore, tmp_path):
    never_synced = tmp_path / "new-ipod"
    (never_synced / "iPod_Control" / "iTunes").mkdir(parents=True)
    library = zqcore.open(str(never_synced))
    assert library.library_source is None and library.tracks == []

    phone = make_sample(tmp_path / "real-phone", "--phone=ios8")
    library = zqcore.open(phone)
    assert library.library_source == "MediaLibrary.sqlitedb"
    assert library.master_playlist.name == "Sample iPhone"
    assert {track.media_type for track in library.tracks} == {1, 4}


def test_files_copies_and_covers(zqcore, sample, tmp_path):
    library = zqcore.open(sample)
    expected = {t["trackID"]: t for t in zqpod_json(sample)["tracks"]}
    for track in library.tracks:
        with open(track.file_path, "rb") as original:
            contents = original.read()
        assert track.read() == contents
        assert track.copy_to(tmp_path / "copy") == len(contents)
        assert (tmp_path / "copy").read_bytes() == contents
        with open(tmp_path / "stream", "wb") as stream:
            track.copy_to(stream)
        assert (tmp_path / "stream").read_bytes() == contents
        cover = track.cover_png()
        if expected[track.id]["artworkID"] is None:
            assert cover is None
        else:
            assert cover[:8] == b"\x89PNG\r\n\x1a\n"
            assert struct.unpack(">II", cover[16:24]) == \
                (expected[track.id]["artworkWidth"], expected[track.id]["artworkHeight"])


def test_failures_are_exceptions(zqcore, tmp_path):
    broken = make_sample(tmp_path / "broken", serial="PYBROKEN001")
    library = zqcore.open(broken)
    track = library.tracks[0]
    os.remove(track.file_path)
    with pytest.raises(OSError):
        track.read()
    with pytest.raises(OSError):
        track.copy_to(tmp_path / "copy")
    assert not (tmp_path / "copy").exists()

    corrupt = make_sample(tmp_path / "corrupt", serial="PYCORRUPT01")
    database = os.path.join(corrupt, "iPod_Control", "iTunes", "iTunesDB")
    with open(database, "r+b") as file:
        file.truncate(os.path.getsize(database) // 2)
    with pytest.raises(zqcore.Error) as error:
        zqcore.open(corrupt)
    assert (error.value.name, error.value.kind) == ("XRDataReaderInvalidRead", "damaged")
    assert error.value.reason == ("The library database iPod_Control/iTunes/iTunesDB is damaged: "
                                  "Length requested is greater than the remaining data.")

    with pytest.raises(zqcore.Error, match="no device is connected with .* 'No Such iPod'"):
        zqcore.open("No Such iPod")


def test_phone_arrives_and_departs(zqcore, simulator, tmp_path):
    phone = make_sample(tmp_path / "phone", "--phone")
    udid = "00008030-00PY7E57C0DE0001"
    events = zqcore.events(timeout=30)
    simulator('attach %s %s name="Py Phone" serial=%s' % (udid, phone, SERIAL))
    event, device = next(events)
    assert (event, device.name, device.serial, device.is_mobile) == ("arrived", "Py Phone", SERIAL, True)
    assert SERIAL in [d.serial for d in zqcore.devices()]

    library = zqcore.open(SERIAL)
    assert as_seen(library) == as_reported(zqpod_json(SERIAL))
    assert library.tracks[0].read()[:4] == b"RIFF"

    simulator("detach " + udid)
    event, device = next(events)
    assert (event, device.serial) == ("departed", SERIAL)
    assert not library.connected

    seen = []
    simulator('attach %s %s name="Py Phone" serial=%s' % (udid, phone, SERIAL))
    zqcore.watch(lambda event, device: seen.append((event, device.serial)), timeout=3)
    assert seen == [("arrived", SERIAL)]
    assert library.connected
