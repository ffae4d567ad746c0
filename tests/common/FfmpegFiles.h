#pragma once
// The files ffmpeg wrote for the tests, its framemd5 lines and ffprobe's
// fields: what the reader's, writer's and plug-in's tests compare against.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace testutil {

inline std::string dataPath(const std::string& name)
{
    const char* root = std::getenv("VELLORO_SOURCE_DIR");
    return std::string(root ? root : ".") + "/tests/data/" + name;
}

inline std::string slurp(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// What the command printed on standard output.
inline std::string run(const std::string& command)
{
    std::string out;
    if (FILE* p = ::popen(command.c_str(), "r")) {
        char buf[65536];
        std::size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, p)) > 0)
            out.append(buf, n);
        ::pclose(p);
    }
    return out;
}

// ffprobe's key=value lines for the streams `select` picks (an index or a
// kind), packets counted; any other line it prints is kept under "error".
inline std::map<std::string, std::string> probe(const std::string& path, const std::string& select,
                                                const std::string& entries)
{
    std::istringstream in(run("ffprobe -v error -count_packets -select_streams " + select + " -show_entries " +
                              entries + " -of default=noprint_wrappers=1 '" + path + "' 2>&1"));
    std::map<std::string, std::string> kv;
    for (std::string line; std::getline(in, line);) {
        if (std::size_t eq = line.find('='); eq != std::string::npos)
            kv[line.substr(0, eq)] = line.substr(eq + 1);
        else if (!line.empty())
            kv["error"] += line;
    }
    return kv;
}

// The fields both sides must agree on: dts (unless left out), size and hash
// of each video packet (ffmpeg's pts and side data are its own), and the
// audio lines.
inline std::vector<std::string> comparable(const std::string& text, bool withDts = true)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#')
            continue;
        if (line.rfind("audio", 0) == 0) {
            out.push_back(line);
            continue;
        }
        std::vector<std::string> f;
        std::stringstream ss(line);
        std::string field;
        while (std::getline(ss, field, ','))
            f.push_back(field.substr(field.find_first_not_of(' ')));
        if (f.size() >= 6)
            out.push_back((withDts ? f[0] + " " : std::string()) + f[1] + " " + f[4] + " " + f[5]);
    }
    return out;
}

// The files ffmpeg wrote for the reader's tests.
inline const std::vector<std::string>& corpus()
{
    static const std::vector<std::string> files = {"uyvy_pcm16.avi", "yuy2_pcm16.avi",    "dv_pal.avi",
                                                   "dv_ntsc.avi",    "dv50.avi",          "mjpeg.avi",
                                                   "mpeg2_bframes.avi", "pcm24_6ch.avi", "audio_only.avi"};
    return files;
}

// Has ffmpeg write the OpenDML file over 1 GiB (and its framemd5 beside
// it) at `path`; false when the script fails or the file is short.
inline bool makeLargeFile(const std::string& path)
{
    const char* root = std::getenv("VELLORO_SOURCE_DIR");
    if (!root)
        return false;
    std::string cmd = std::string("bash '") + root + "/scripts/make-test-files.sh' --large '" + path + "'";
    return std::system(cmd.c_str()) == 0 && std::filesystem::file_size(path) > (1ull << 30);
}

} // namespace testutil
