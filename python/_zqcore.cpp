// The C++ half of the Python module `zqcore`: the framework's objects with Python names and
// Python types (str, int, datetime, bytes, lists), its exceptions as zqcore.Error. The Pythonic
// entry points (devices(), open(), events(), watch()) are in zqcore/__init__.py on top of it.
// Only the installed interface of libZQCore.so is used here.

#include <ZQCore/ZQCore.h>

#include <glib.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace py = pybind11;

namespace {

// The module's zqcore.Error, which the module itself keeps alive (a handle, so nothing is released
// after the interpreter has gone at exit).
py::handle gErrorType;

py::bytes toBytes(const zq::Data& data)
{
    return py::bytes(reinterpret_cast<const char*>(data.bytes()), data.size());
}

py::object toDatetime(const std::optional<zq::Date>& date)
{
    if (!date)
        return py::none();
    auto datetime = py::module_::import("datetime");
    return datetime.attr("datetime").attr("fromtimestamp")(date->unixTime(), datetime.attr("timezone").attr("utc"));
}

// OSError(errno, text, what), which Python turns into FileNotFoundError and the like.
[[noreturn]] void raiseOSError(int error, const std::string& what)
{
    PyErr_SetObject(PyExc_OSError, py::make_tuple(error, std::string(std::strerror(error)), what).ptr());
    throw py::error_already_set();
}

std::string trackLabel(const zq::iPodTrack& track)
{
    return "track " + std::to_string(track.trackID()) + " (" + track.filePath().value_or("no file") + ")";
}

// The whole file of a track in memory.
py::bytes readTrack(const zq::iPodTrack& track)
{
    std::optional<zq::Data> contents;
    {
        py::gil_scoped_release release;
        contents = track.contentsOfTrackFile();
    }
    if (!contents)
        raiseOSError(EIO, "cannot read the file of " + trackLabel(track));
    return toBytes(*contents);
}

// Streams a track's file into a path (made or replaced) or into an open file object; a path
// that did not receive the whole file is removed again.
std::uint64_t copyTrack(const zq::iPodTrack& track, const py::object& destination)
{
    if (py::hasattr(destination, "fileno")) {
        destination.attr("flush")();
        int fd = destination.attr("fileno")().cast<int>();
        zq::FileCopyResult result;
        {
            py::gil_scoped_release release;
            result = track.copyTrackFileTo(fd);
        }
        if (!result.completed)
            raiseOSError(result.error ? result.error : EIO, "cannot copy the file of " + trackLabel(track));
        return result.bytesCopied;
    }
    std::string path = py::str(py::module_::import("os").attr("fspath")(destination));
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        raiseOSError(errno, path);
    zq::FileCopyResult result;
    {
        py::gil_scoped_release release;
        result = track.copyTrackFileTo(fd);
    }
    int closeError = ::close(fd) == 0 ? 0 : errno;
    if (!result.completed || closeError) {
        ::unlink(path.c_str());
        raiseOSError(!result.completed ? (result.error ? result.error : EIO) : closeError,
                     "cannot copy the file of " + trackLabel(track) + " to " + path);
    }
    return result.bytesCopied;
}

// The track's own cover as PNG; None for a track without one.
py::object coverPNG(const zq::iPodTrack& track)
{
    if (!track.hasAlbumArt())
        return py::none();
    std::optional<zq::Data> png;
    {
        py::gil_scoped_release release;
        auto image = track.albumArt()->image();
        if (image)
            png = image->pngData();
    }
    if (!png)
        raiseOSError(EIO, "cannot read the cover of " + trackLabel(track));
    return toBytes(*png);
}

// ---- devices as they come and go --------------------------------------------------------------

bool gStarted = false;
bool gChanged = false;

// The framework's façade, made on the calling thread's main context, with mobile devices
// attached now already reported (as a program without a main loop must ask for).
void start()
{
    if (gStarted)
        return;
    gStarted = true;
    const auto& core = zq::ZQCore::sharedInstance();
    core->addObserver("connectediPods", [](const std::string&, zq::Observable::Phase phase) {
        if (phase == zq::Observable::Phase::DidChange)
            gChanged = true;
    });
    py::gil_scoped_release release;
    zq::AFCFactory::factory()->waitForAttachedDevices(std::chrono::seconds(5));
}

std::vector<std::shared_ptr<zq::ZQCoreiPodRef>> connectedDevices()
{
    start();
    return zq::ZQCore::connectediPodsOfSharedInstance();
}

// Runs the main context for up to `seconds`, returning early (true) once the connected list
// has changed. Short waits, looped in Python, keep Ctrl-C working.
bool waitForChange(double seconds)
{
    start();
    gChanged = false;
    py::gil_scoped_release release;
    GMainContext* context = g_main_context_ref_thread_default();
    bool timedOut = false;
    GSource* timer = g_timeout_source_new(static_cast<guint>(seconds * 1000));
    g_source_set_callback(
        timer, [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_REMOVE;
        },
        &timedOut, nullptr);
    g_source_attach(timer, context);
    while (!gChanged && !timedOut)
        g_main_context_iteration(context, TRUE);
    g_source_destroy(timer);
    g_source_unref(timer);
    g_main_context_unref(context);
    return gChanged;
}

std::shared_ptr<zq::ZQCoreiPod> openReference(const std::shared_ptr<zq::ZQCoreiPodRef>& reference)
{
    start();
    py::gil_scoped_release release;
    return zq::ZQCoreiPod::initWithiPodReference(reference);
}

std::shared_ptr<zq::ZQCoreiPod> openPath(const std::string& path)
{
    start();
    py::gil_scoped_release release;
    return zq::ZQCoreiPod::initWithiPodReference(zq::ZQCoreiPodRef::initWithPath(path));
}

} // namespace

PYBIND11_MODULE(_zqcore, m)
{
    m.doc() = "The music library of iPods and iPhones (ZQCore)";

    py::exception<zq::Exception> error(m, "Error");
    gErrorType = error;
    py::register_exception_translator([](std::exception_ptr pointer) {
        try {
            if (pointer)
                std::rethrow_exception(pointer);
        } catch (const zq::Exception& exception) {
            py::object instance = gErrorType(exception.reason());
            instance.attr("name") = exception.name();
            instance.attr("reason") = exception.reason();
            instance.attr("kind") = zq::errorKindName(exception.kind());
            PyErr_SetObject(gErrorType.ptr(), instance.ptr());
        }
    });

    py::class_<zq::iPodTrack, std::shared_ptr<zq::iPodTrack>>(m, "Track")
        .def_property_readonly("id", &zq::iPodTrack::trackID)
        .def_property_readonly("dbid", &zq::iPodTrack::dbid)
        .def_property_readonly("title", &zq::iPodTrack::title)
        .def_property_readonly("artist", &zq::iPodTrack::artist)
        .def_property_readonly("album", &zq::iPodTrack::album)
        .def_property_readonly("album_artist", &zq::iPodTrack::albumArtist)
        .def_property_readonly("genre", &zq::iPodTrack::genre)
        .def_property_readonly("composer", &zq::iPodTrack::composer)
        .def_property_readonly("comment", &zq::iPodTrack::comment)
        .def_property_readonly("grouping", &zq::iPodTrack::grouping)
        .def_property_readonly("description", &zq::iPodTrack::trackDescription)
        .def_property_readonly("podcast_category", &zq::iPodTrack::podcastCategory)
        .def_property_readonly("file_type", &zq::iPodTrack::fileType)
        .def_property_readonly("file_path", &zq::iPodTrack::filePath)
        .def_property_readonly("size", &zq::iPodTrack::fileSize)
        .def_property_readonly("duration", [](const zq::iPodTrack& t) { return t.trackLength() / 1000.0; })
        .def_property_readonly("track_number", &zq::iPodTrack::trackNumber)
        .def_property_readonly("track_count", &zq::iPodTrack::trackTotal)
        .def_property_readonly("disc_number", &zq::iPodTrack::discNumber)
        .def_property_readonly("disc_count", &zq::iPodTrack::discTotal)
        .def_property_readonly("year", &zq::iPodTrack::year)
        .def_property_readonly("bitrate", &zq::iPodTrack::bitrate)
        .def_property_readonly("sample_rate", &zq::iPodTrack::sampleRate)
        .def_property_readonly("rating", &zq::iPodTrack::rating)
        .def_property_readonly("play_count", &zq::iPodTrack::playCount)
        .def_property_readonly("compilation", &zq::iPodTrack::compilation)
        .def_property_readonly("media_type", &zq::iPodTrack::mediaType)
        .def_property_readonly("date_added", [](const zq::iPodTrack& t) { return toDatetime(t.dateAdded()); })
        .def_property_readonly("last_played", [](const zq::iPodTrack& t) { return toDatetime(t.lastPlayedTime()); })
        .def_property_readonly("has_cover", &zq::iPodTrack::hasAlbumArt)
        .def("read", &readTrack, "The whole file of the track as bytes.")
        .def("copy_to", &copyTrack, py::arg("destination"),
             "Streams the track's file into a path or an open file; answers the bytes copied.")
        .def("cover_png", &coverPNG, "The track's cover as PNG bytes; None when it has none.")
        .def("__repr__", [](const zq::iPodTrack& t) {
            return "<zqcore.Track " + std::to_string(t.trackID()) + " " + t.artist().value_or("") + " - " +
                   t.title().value_or("") + ">";
        });

    py::class_<zq::Playlist, std::shared_ptr<zq::Playlist>>(m, "Playlist")
        .def_property_readonly("name", &zq::Playlist::name)
        .def_property_readonly("id", &zq::Playlist::playlistID)
        .def_property_readonly("parent_id", &zq::Playlist::parentID)
        .def_property_readonly("kind", [](const zq::Playlist& p) { return std::string(p.kind()); })
        .def_property_readonly("is_master", &zq::Playlist::isMaster)
        .def_property_readonly("tracks", &zq::Playlist::tracks)
        .def("__len__", [](const zq::Playlist& p) { return p.trackCount(); })
        .def("__iter__", [](const zq::Playlist& p) { return py::iter(py::cast(p.tracks())); })
        .def("__repr__", [](const zq::Playlist& p) {
            return std::string("<zqcore.Playlist ") + p.kind() + " '" + p.name().value_or("") + "'>";
        });

    py::class_<zq::DeviceModel>(m, "Model", "What a device is, as far as its information files tell it.")
        .def_property_readonly("number", &zq::DeviceModel::modelNumber,
                               "Apple's model number (\"MB029\"), or None when the files give none.")
        .def_property_readonly("name", &zq::DeviceModel::name, "The family (\"iPod classic\"), or None when unknown.")
        .def_property_readonly("generation", &zq::DeviceModel::generation,
                               "The generation (\"6th generation\"), or None when unknown or not named by one.")
        .def_property_readonly("capacity", &zq::DeviceModel::capacity, "The capacity (\"80 GB\"), or None when unknown.")
        .def_property_readonly("colour", &zq::DeviceModel::colour, "The colour (\"silver\"), or None when unknown.")
        .def_property_readonly("display_name", &zq::DeviceModel::displayName,
                               "\"iPod classic (6th generation), 80 GB, silver\" without the unknown parts; \"\" when "
                               "even the family is unknown.")
        .def("__eq__", [](const zq::DeviceModel& a, const zq::DeviceModel& b) { return a == b; })
        .def("__repr__", [](const zq::DeviceModel& model) {
            return "<zqcore.Model '" + model.displayName() + "' number=" + model.modelNumber().value_or("none") + ">";
        });

    py::class_<zq::ZQCoreiPod, std::shared_ptr<zq::ZQCoreiPod>>(m, "Library")
        .def_property_readonly("name", &zq::ZQCoreiPod::name)
        .def_property_readonly("serial", [](const zq::ZQCoreiPod& l) -> std::optional<std::string> {
            const zq::Value* serial = l.properties().find("SerialNumber");
            if (serial && serial->string())
                return *serial->string();
            return std::nullopt;
        })
        .def_property_readonly("path", &zq::ZQCoreiPod::path)
        .def_property_readonly("model_type", &zq::ZQCoreiPod::type)
        .def_property_readonly("model", &zq::ZQCoreiPod::model,
                               "The device's model (a Model): name, generation, capacity, colour, number.")
        .def_property_readonly("connected", &zq::ZQCoreiPod::isConnected)
        .def_property_readonly("tracks", &zq::ZQCoreiPod::allTracks)
        .def_property_readonly("playlists", &zq::ZQCoreiPod::allPlaylists)
        .def_property_readonly("master_playlist", &zq::ZQCoreiPod::masterPlaylist)
        .def_property_readonly(
            "library_source",
            [](const zq::ZQCoreiPod& l) -> std::optional<std::string> {
                if (l.librarySource() == zq::ZQCoreiPod::LibrarySource::None)
                    return std::nullopt;
                return std::string(zq::ZQCoreiPod::librarySourceName(l.librarySource()));
            },
            "The database the library was read from (\"iTunesDB\", \"iTunesCDB\", \"iTunes Library.itlp\" or "
            "\"MediaLibrary.sqlitedb\"); None when the device holds no library database at all, which is not the "
            "same as a library of 0 tracks.")
        .def_property_readonly("load_warnings", &zq::ZQCoreiPod::loadWarnings,
                               "What of the library could not be read (one line each); empty when everything was.")
        .def("track", [](const zq::ZQCoreiPod& l, std::uint32_t id) -> std::shared_ptr<zq::iPodTrack> {
            for (const auto& track : l.allTracks())
                if (track->trackID() == id)
                    return track;
            throw py::key_error("no track " + std::to_string(id));
        }, py::arg("id"), "The track with the given id.")
        .def("__repr__", [](const zq::ZQCoreiPod& l) {
            return "<zqcore.Library '" + l.name().value_or("") + "' " + std::to_string(l.allTracks().size()) +
                   " tracks>";
        });

    py::class_<zq::ZQCoreiPodRef, std::shared_ptr<zq::ZQCoreiPodRef>>(m, "Device")
        .def_property_readonly("name", &zq::ZQCoreiPodRef::name)
        .def_property_readonly("serial", &zq::ZQCoreiPodRef::serialNumber)
        .def_property_readonly("path", &zq::ZQCoreiPodRef::path)
        .def_property_readonly("model", &zq::ZQCoreiPodRef::model,
                               "The device's model (a Model), read without loading the library.")
        .def_property_readonly("is_mobile", [](const zq::ZQCoreiPodRef& d) { return !d.isMountedVolume(); })
        .def("open", &openReference, "Loads the device's library (a Library).")
        .def("__repr__", [](const zq::ZQCoreiPodRef& d) {
            return "<zqcore.Device '" + d.name().value_or("") + "' serial=" + d.serialNumber().value_or("none") +
                   " path=" + d.path().value_or("") + ">";
        });

    m.def("_connected_devices", &connectedDevices);
    m.def("_wait_for_change", &waitForChange, py::arg("seconds"));
    m.def("_open_path", &openPath, py::arg("path"));
    m.attr("__version__") = ZQCORE_VERSION;
}
