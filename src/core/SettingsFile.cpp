// SPDX-License-Identifier: MIT
#include "core/SettingsFile.h"

#include "core/Settings.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

#include <pwd.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace settingsfile
{
namespace
{
// Far more than any settings file needs; a bigger one is not ours (and is not read whole).
const std::uintmax_t MAX_FILE_BYTES = 64 * 1024;
const size_t MAX_QUOTED = 40; // characters of a bad key or value quoted in a message
const int MIN_WINDOW = 200;   // pixels: smaller leaves nothing to see
const int MAX_WINDOW = 16384;

enum class Kind
{
    Switch, // an on/off setting of a function key
    Cycle,  // a cycling setting of a function key
    Flag,   // the rest: the preferences
    Whole,
    Number
};

struct Entry
{
    const char* section;
    const char* key;
    Kind kind;
    float min = 0.0f; // Whole and Number only
    float max = 0.0f;
    // Where a preference lives: the one member for its kind.
    bool Preferences::*flag = nullptr;
    int Preferences::*whole = nullptr;
    float Preferences::*number = nullptr;
};

Entry switchEntry(const char* key, Kind kind)
{
    return {"graphics", key, kind};
}
Entry flagEntry(const char* section, const char* key, bool Preferences::*flag)
{
    Entry entry{section, key, Kind::Flag};
    entry.flag = flag;
    return entry;
}
Entry wholeEntry(const char* section, const char* key, int Preferences::*whole, int min, int max)
{
    Entry entry{section, key, Kind::Whole, static_cast<float>(min), static_cast<float>(max)};
    entry.whole = whole;
    return entry;
}
Entry numberEntry(const char* section, const char* key, float Preferences::*number, float min,
                  float max)
{
    Entry entry{section, key, Kind::Number, min, max};
    entry.number = number;
    return entry;
}

// In the order they are written.
const Entry ENTRIES[] = {
    switchEntry("help", Kind::Switch),
    switchEntry("framerate", Kind::Switch),
    switchEntry("wireframe", Kind::Switch),
    switchEntry("vbo", Kind::Switch),
    switchEntry("motionblur", Kind::Switch),
    switchEntry("frustum", Kind::Switch),
    switchEntry("transparency", Kind::Switch),
    switchEntry("texture-quality", Kind::Cycle),
    switchEntry("texture-mipmap", Kind::Cycle),
    flagEntry("window", "fullscreen", &Preferences::fullscreen),
    wholeEntry("window", "width", &Preferences::windowWidth, MIN_WINDOW, MAX_WINDOW),
    wholeEntry("window", "height", &Preferences::windowHeight, MIN_WINDOW, MAX_WINDOW),
    numberEntry("input", "sensitivity", &Preferences::sensitivity, MIN_SENSITIVITY,
                MAX_SENSITIVITY),
    flagEntry("input", "invert-y", &Preferences::invertY),
    numberEntry("sound", "music-volume", &Preferences::musicVolume, 0.0f, 1.0f),
    numberEntry("sound", "effects-volume", &Preferences::effectsVolume, 0.0f, 1.0f),
};

// The preference behind a Flag, Whole or Number entry, as a double.
double preference(const Preferences& p, const Entry& entry)
{
    if (entry.flag)
    {
        return p.*entry.flag ? 1.0 : 0.0;
    }
    return entry.whole ? p.*entry.whole : p.*entry.number;
}

void setPreference(Preferences& p, const Entry& entry, double value)
{
    if (entry.flag)
    {
        p.*entry.flag = value != 0.0;
    }
    else if (entry.whole)
    {
        p.*entry.whole = static_cast<int>(value);
    }
    else
    {
        p.*entry.number = static_cast<float>(value);
    }
}

std::string_view trim(std::string_view s)
{
    const size_t first = s.find_first_not_of(" \t");
    if (first == std::string_view::npos)
    {
        return {};
    }
    return s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

// TEXT as it may be shown in a message: short, printable.
std::string quoted(std::string_view text)
{
    std::string shown = "'";
    for (size_t i = 0; i < text.size() && i < MAX_QUOTED; ++i)
    {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        shown += c >= 0x20 && c < 0x7f ? static_cast<char>(c) : '?';
    }
    return shown + (text.size() > MAX_QUOTED ? "...'" : "'");
}

const Entry* findEntry(std::string_view section, std::string_view key)
{
    for (const Entry& entry : ENTRIES)
    {
        if (section == entry.section && key == entry.key)
        {
            return &entry;
        }
    }
    return nullptr;
}

bool knownSection(std::string_view section)
{
    for (const Entry& entry : ENTRIES)
    {
        if (section == entry.section)
        {
            return true;
        }
    }
    return false;
}

// The value of ENTRY written as TEXT; an empty string when it is fine, else what is wrong.
std::string readValue(const Entry& entry, int count, std::string_view text, double& value)
{
    const char* first = text.data();
    const char* last = text.data() + text.size();
    switch (entry.kind)
    {
    case Kind::Switch:
    case Kind::Flag:
        if (text == "true" || text == "false")
        {
            value = text == "true";
            return {};
        }
        return "must be true or false";
    case Kind::Cycle:
    case Kind::Whole:
    {
        int whole = 0;
        const auto [end, error] = std::from_chars(first, last, whole);
        const int low = entry.kind == Kind::Cycle ? 0 : static_cast<int>(entry.min);
        const int high = entry.kind == Kind::Cycle ? count - 1 : static_cast<int>(entry.max);
        if (error != std::errc() || end != last || whole < low || whole > high)
        {
            return "must be a whole number from " + std::to_string(low) + " to " +
                   std::to_string(high);
        }
        value = whole;
        return {};
    }
    case Kind::Number:
    {
        float number = 0.0f;
        const auto [end, error] = std::from_chars(first, last, number);
        if (error != std::errc() || end != last || !std::isfinite(number) || number < entry.min ||
            number > entry.max)
        {
            char range[64];
            std::snprintf(range, sizeof(range), "must be a number from %g to %g", entry.min,
                          entry.max);
            return range;
        }
        value = number;
        return {};
    }
    }
    return "cannot be read";
}

// A value read from the file, applied once the whole file has been read.
struct Found
{
    const Entry* entry;
    double value;
};

// One line of the file: blank, a comment, a section (which becomes SECTION) or a setting (added
// to FOUND). False, with WRONG saying why, for anything else.
bool readLine(std::string_view line, const Settings& settings, std::string_view& section,
              std::vector<Found>& found, std::string& wrong)
{
    if (!line.empty() && line.back() == '\r')
    {
        line.remove_suffix(1);
    }
    for (const char c : line)
    {
        if (static_cast<unsigned char>(c) < 0x20 && c != '\t')
        {
            wrong = "control characters in the text";
            return false;
        }
    }
    line = trim(line);
    if (line.empty() || line[0] == '#' || line[0] == ';')
    {
        return true;
    }
    if (line[0] == '[')
    {
        if (line.back() != ']' || !knownSection(line.substr(1, line.size() - 2)))
        {
            wrong = "unknown section " + quoted(line);
            return false;
        }
        section = line.substr(1, line.size() - 2);
        return true;
    }
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos)
    {
        wrong = "expected 'name = value', found " + quoted(line);
        return false;
    }
    const std::string_view key = trim(line.substr(0, equals));
    const Entry* entry = findEntry(section, key);
    if (!entry)
    {
        wrong = "unknown setting " + quoted(key) +
                (section.empty() ? "" : " in [" + std::string(section) + "]");
        return false;
    }
    double value = 0.0;
    wrong = readValue(*entry, settings.getCount(entry->key), trim(line.substr(equals + 1)), value);
    if (!wrong.empty())
    {
        wrong = quoted(key) + " " + wrong;
        return false;
    }
    found.push_back({entry, value});
    return true;
}

std::string formatNumber(double value)
{
    char text[32];
    const auto [end, error] = std::to_chars(text, text + sizeof(text), static_cast<float>(value));
    return error == std::errc() ? std::string(text, end) : "0";
}

} // namespace

std::string homeFolder()
{
    if (const char* home = std::getenv("HOME"); home && *home)
    {
        return home;
    }
    if (const passwd* user = getpwuid(getuid()); user && user->pw_dir)
    {
        return user->pw_dir;
    }
    return {};
}

std::string configFolder()
{
    const char* config = std::getenv("XDG_CONFIG_HOME");
    // XDG base directories must be absolute: a relative one is ignored.
    if (config && config[0] == '/')
    {
        return config;
    }
    const std::string home = homeFolder();
    return home.empty() ? std::string() : home + "/.config";
}

std::string defaultPath()
{
    const std::string config = configFolder();
    return config.empty() ? std::string() : config + "/blotch/settings.ini";
}

bool parse(std::string_view text, Settings& settings, Preferences& preferences,
           std::string& problem)
{
    if (text.size() > MAX_FILE_BYTES)
    {
        problem = "the file is larger than 64 KiB";
        return false;
    }
    std::vector<Found> found;
    std::string_view section;
    for (int lineNumber = 1; !text.empty(); ++lineNumber)
    {
        const size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        std::string wrong;
        if (!readLine(line, settings, section, found, wrong))
        {
            problem = "line " + std::to_string(lineNumber) + ": " + wrong;
            return false;
        }
    }

    // All of it is good: only now does anything change.
    for (const Found& f : found)
    {
        switch (f.entry->kind)
        {
        case Kind::Switch:
            settings.setBool(f.entry->key, f.value != 0.0);
            break;
        case Kind::Cycle:
            settings.setInt(f.entry->key, static_cast<int>(f.value));
            break;
        default:
            setPreference(preferences, *f.entry, f.value);
            break;
        }
    }
    return true;
}

std::string format(Settings& settings, const Preferences& preferences)
{
    std::string text = "# Blotch settings, written by the game whenever one changes.\n";
    std::string_view section;
    for (const Entry& entry : ENTRIES)
    {
        if (section != entry.section)
        {
            section = entry.section;
            text += "\n[" + std::string(section) + "]\n";
        }
        text += std::string(entry.key) + " = ";
        switch (entry.kind)
        {
        case Kind::Switch:
            text += settings.getBool(entry.key) ? "true" : "false";
            break;
        case Kind::Cycle:
            text += std::to_string(settings.getInt(entry.key));
            break;
        case Kind::Flag:
            text += preference(preferences, entry) != 0.0 ? "true" : "false";
            break;
        case Kind::Whole:
            text += std::to_string(static_cast<int>(preference(preferences, entry)));
            break;
        case Kind::Number:
            text += formatNumber(preference(preferences, entry));
            break;
        }
        text += "\n";
    }
    return text;
}

Loaded load(const std::string& path, Settings& settings, Preferences& preferences)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (status.type() == fs::file_type::not_found)
    {
        return Loaded::Missing;
    }
    std::string problem;
    if (error)
    {
        problem = error.message();
    }
    else if (!fs::is_regular_file(status))
    {
        problem = "not a regular file";
    }
    else if (fs::file_size(path, error) > MAX_FILE_BYTES)
    {
        problem = "the file is larger than 64 KiB";
    }
    else
    {
        std::ifstream in(path, std::ios::binary);
        if (!in)
        {
            problem = std::strerror(errno ? errno : EACCES);
        }
        else
        {
            const std::string text((std::istreambuf_iterator<char>(in)), {});
            if (in.bad())
            {
                problem = "it could not be read to the end";
            }
            else if (parse(text, settings, preferences, problem))
            {
                return Loaded::Read;
            }
        }
    }
    std::fprintf(stderr, "[ERROR] Ignoring the settings file %s: %s; using the defaults\n",
                 path.c_str(), problem.c_str());
    return Loaded::Damaged;
}

bool save(const std::string& path, Settings& settings, const Preferences& preferences)
{
    const std::string text = format(settings, preferences);
    const std::string temporary = path + ".new";
    std::error_code error;
    fs::create_directories(fs::path(path).parent_path(), error);
    bool written = false;
    if (FILE* out = std::fopen(temporary.c_str(), "wb"))
    {
        written = std::fwrite(text.data(), 1, text.size(), out) == text.size();
        written = std::fflush(out) == 0 && written;
        written = fsync(fileno(out)) == 0 && written;
        written = std::fclose(out) == 0 && written;
    }
    const int saved = errno;
    if (written && std::rename(temporary.c_str(), path.c_str()) == 0)
    {
        return true;
    }
    std::fprintf(stderr, "[ERROR] Could not save the settings to %s: %s\n", path.c_str(),
                 std::strerror(written ? errno : saved));
    std::remove(temporary.c_str());
    return false;
}
} // namespace settingsfile
