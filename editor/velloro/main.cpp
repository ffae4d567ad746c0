// velloro: the editor stand-in's command line.
#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "Coding.h"
#include "DiskCheck.h"
#include "Play.h"
#include "PluginRead.h"
#include "PluginWrite.h"
#include "Repair.h"
#include "Thumbnails.h"

namespace {

// "AxB" with two whole numbers that fit 32 bits.
bool splitPair(const std::string& text, char sep, std::uint32_t& a, std::uint32_t& b)
{
    const std::size_t at = text.find(sep);
    if (at == std::string::npos)
        return false;
    auto number = [](const std::string& s, std::uint32_t& out) {
        if (s.empty() || s.size() > 10 || s.find_first_not_of("0123456789") != std::string::npos)
            return false;
        const unsigned long long v = std::stoull(s);
        out = static_cast<std::uint32_t>(v);
        return v <= 0xFFFFFFFFull;
    };
    return number(text.substr(0, at), a) && number(text.substr(at + 1), b);
}

// The render options, checked as they are parsed: a bad value is a usage error.
void addRenderOptions(CLI::App& render, velloro::RenderOptions& o)
{
    render
        .add_option_function<std::string>(
            "--format",
            [&o](const std::string& v) {
                if (v.size() != 4)
                    throw CLI::ValidationError("--format", "a FourCC has four characters: " + v);
                o.fcc = std::uint32_t(std::uint8_t(v[0])) | std::uint32_t(std::uint8_t(v[1])) << 8 |
                        std::uint32_t(std::uint8_t(v[2])) << 16 | std::uint32_t(std::uint8_t(v[3])) << 24;
            },
            "UYVY, YUY2, M101, M102, v210, or encoded: dvsd, dv25, dv50 (DV at 720x480 or 720x576), dvh1\n"
            "(DVCPRO HD), MMES (MPEG-2 4:2:2 long GOP, SD), M701 (the same, HD) or MJPG (default UYVY)")
        ->type_name("FOURCC");
    render
        .add_option_function<std::string>(
            "--size",
            [&o](const std::string& v) {
                if (!splitPair(v, 'x', o.width, o.height))
                    throw CLI::ValidationError("--size", "not WIDTHxHEIGHT: " + v);
            },
            "picture size (default 1920x1080; 720x480 for DV and MMES, 720x576 at 25/1)")
        ->type_name("WxH");
    render
        .add_option_function<std::string>(
            "--rate",
            [&o](const std::string& v) {
                if (!splitPair(v, '/', o.rateNum, o.rateDen) || !o.rateNum || !o.rateDen)
                    throw CLI::ValidationError("--rate", "not a frame rate N/D: " + v);
            },
            "frames per second as a fraction (default 30000/1001)")
        ->type_name("N/D");
    render.add_option("--seconds", o.seconds, "length (default 2)")
        ->type_name("S")
        ->check(CLI::Range(1e-3, 86400.0));
    render
        .add_option_function<std::string>(
            "--audio",
            [&o](const std::string& v) {
                if (v == "none") {
                    o.channels = 0;
                    return;
                }
                if (!splitPair(v, 'x', o.channels, o.sampleRate) || o.channels < 1 || o.channels > 16 ||
                    o.sampleRate < 8000 || o.sampleRate > 192000)
                    throw CLI::ValidationError("--audio", "not CHANNELSxRATE (1-16 x 8000-192000) or none: " + v);
            },
            "a tone in every channel (default 2x48000)")
        ->type_name("CHANNELSxRATE|none");
    render
        .add_option_function<std::string>(
            "--scan",
            [&o](const std::string& v) {
                static const std::pair<const char*, std::uint32_t> kScans[] = {
                    {"tff", 1}, {"bff", 2}, {"progressive", 3}, {"psf", 4}};
                for (const auto& [name, code] : kScans)
                    if (v == name) {
                        o.scanMode = code;
                        return;
                    }
                throw CLI::ValidationError("--scan", "not tff, bff, progressive or psf: " + v);
            },
            "tff, bff, progressive or psf (default: tff at 1080 and 576 lines, bff at 480 and 486, else progressive)")
        ->type_name("SCAN");
    render.add_option("--timecode", o.timecode, "the first frame's label, HH:MM:SS:FF or HH:MM:SS;FF for drop frame")
        ->type_name("LABEL");
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("The Velloro editor stand-in: drives the AVI plug-in as the editor does.\n"
                 "The plug-in is lib/libvelloro_avi.so beside bin/, or $VELLORO_PLUGIN.",
                 "velloro");
    app.set_version_flag("--version", std::string("velloro ") + VELLORO_VERSION);
    app.require_subcommand(1);
    app.footer("Ctrl-C or SIGTERM stops export and render after the frame being written and closes OUT\n"
               "with the frames so far, and play after the reads in flight with the report so far; the status\n"
               "is then 130 (SIGINT) or 143. A usage error exits with 2, a failure with 1.");

    std::string dir = ".", file, in, out;
    bool json = false, overwrite = false, quiet = false;
    velloro::RenderOptions options;

    CLI::App* diskCheck = app.add_subcommand("disk-check", "write and read back a sector-aligned file in DIR");
    diskCheck->add_option("DIR", dir, "where (default: .)");
    CLI::App* framemd5 =
        app.add_subcommand("framemd5", "ffmpeg's framemd5 of FILE's video frames and an MD5 per audio stream");
    framemd5->add_option("FILE", file)->required();
    CLI::App* probe = app.add_subcommand("probe", "what the editor learns of FILE through the AVI plug-in");
    probe->add_option("FILE", file)->required();
    probe->add_flag("--json", json, "one JSON object");
    auto overwriteFlag = [&overwrite](CLI::App* c) {
        c->add_flag("-y,--overwrite", overwrite, "replace an existing OUT (never IN, under any name)");
    };
    auto quietFlag = [&quiet](CLI::App* c) {
        c->add_flag("-q,--quiet", quiet, "no progress bar and no summary line");
    };
    CLI::App* exportCmd = app.add_subcommand("export", "write IN again as OUT through the plug-in's reader and writer");
    exportCmd->add_option("IN", in)->required();
    exportCmd->add_option("OUT", out)->required();
    overwriteFlag(exportCmd);
    quietFlag(exportCmd);
    CLI::App* render = app.add_subcommand("render", "colour bars and a tone written through the plug-in");
    render->add_option("OUT", out)->required();
    overwriteFlag(render);
    quietFlag(render);
    addRenderOptions(*render, options);
    std::uint32_t count = 12;
    CLI::App* thumbnails =
        app.add_subcommand("thumbnails", "a contact sheet of frames spread over FILE, with their timecodes, as a PNG");
    thumbnails->add_option("FILE", file)->required();
    thumbnails->add_option("PNG", out)->required();
    thumbnails->add_option("--count", count, "frames on the sheet, first and last included (default 12)")
        ->check(CLI::Range(1, 64));
    CLI::App* repair = app.add_subcommand(
        "repair", "make a file whose writer was killed whole again: in place, or as OUT (files with video only)");
    repair->add_option("IN", in)->required();
    repair->add_option("OUT", out);
    overwriteFlag(repair);
    std::vector<std::string> files;
    double playSeconds = 0.0;
    bool asFastAsPossible = false;
    CLI::App* play = app.add_subcommand(
        "play", "play the FILEs at once in playback order, each at its own frame rate, as the editor's players do:\n"
                "frames late, headroom over real time and MB/s per file (can this disk play these streams?)");
    play->add_option("FILE", files, "AVI files, played side by side")->required();
    play->add_option("--for", playSeconds, "seconds of material to play from the start of each (default: all of it)")
        ->type_name("S")
        ->check(CLI::Range(1e-3, 1e7));
    play->add_flag("--as-fast-as-possible", asFastAsPossible,
                   "no clock: every read asked for as soon as the window allows, no frame late; the report is\n"
                   "then about throughput");
    play->add_flag("--json", json, "one JSON object with the same figures");
    play->footer(velloro::kPlayReport);

    // A first word that names no command is the error, not the missing command.
    if (argc > 1 && argv[1][0] != '-' && app.get_subcommands([&](CLI::App* c) { return c->get_name() == argv[1]; }).empty()) {
        std::fprintf(stderr, "unknown command %s\nRun with --help for more information.\n", argv[1]);
        return 2;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // Help and version go to standard output with status 0; anything
        // else is a usage error: the reason on standard error, status 2.
        return app.exit(e) == 0 ? 0 : 2;
    }

    if (diskCheck->parsed())
        return velloro::diskCheck(dir);
    if (framemd5->parsed())
        return velloro::pluginFrameMd5Command(file.c_str());
    if (probe->parsed())
        return velloro::pluginProbeCommand(file.c_str(), json);
    if (exportCmd->parsed())
        return velloro::exportCommand(in.c_str(), out.c_str(), overwrite, quiet);
    if (render->parsed()) {
        velloro::applyFormatDefaults(options, render->count("--size") > 0, render->count("--rate") > 0);
        return velloro::renderCommand(out.c_str(), overwrite, options, quiet);
    }
    if (play->parsed())
        return velloro::playCommand(files, playSeconds, asFastAsPossible, json);
    if (thumbnails->parsed())
        return velloro::thumbnailsCommand(file.c_str(), out.c_str(), count);
    return velloro::repairCommand(in.c_str(), out.empty() ? nullptr : out.c_str(), overwrite);
}
