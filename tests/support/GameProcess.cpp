// SPDX-License-Identifier: MIT
#include "support/GameProcess.h"
#include "support/Fixtures.h"

#include <gtest/gtest.h>

#include <X11/Xlib.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{
void pause(double seconds)
{
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

double now()
{
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

// Asks DONE every STEP seconds until it says yes (true) or SECONDS have passed (false).
template <typename Done> bool waitUntil(double seconds, Done done, double step = 0.05)
{
    for (const double end = now() + seconds; !done(); pause(step))
    {
        if (now() >= end)
        {
            return false;
        }
    }
    return true;
}
} // namespace

std::string runCommand(const std::string& command, int* status)
{
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe)
    {
        if (status)
        {
            *status = -1;
        }
        return output;
    }
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof(buffer), pipe)) > 0)
    {
        output.append(buffer, n);
    }
    const int result = pclose(pipe);
    if (status)
    {
        *status = WIFEXITED(result) ? WEXITSTATUS(result) : -1;
    }
    return output;
}

GameProcess::GameProcess(Data data)
{
    char pattern[] = "/tmp/blotch-e2e-XXXXXX";
    dir = mkdtemp(pattern);
    fs::create_directories(configDir());
    const fs::path source = fs::path(BLOTCH_SOURCE_DIR) / "data";
    if (data == Data::Link)
    {
        fs::create_directory_symlink(source, fs::path(dir) / "data");
    }
    else if (data == Data::Copy)
    {
        fs::copy(source, fs::path(dir) / "data", fs::copy_options::recursive);
    }
}

void GameProcess::setCommand(std::string binary, std::vector<std::string> arguments)
{
    this->binary = std::move(binary);
    this->arguments = std::move(arguments);
}

GameProcess::~GameProcess()
{
    kill();
    const std::string errors = errorText();
    // GL errors (BLOTCH_GL_DEBUG) and, in the sanitized build, AddressSanitizer and UBSan reports.
    for (const char* mark : {"[GL] ", "ERROR: AddressSanitizer", "runtime error: "})
    {
        for (size_t at = errors.find(mark); at != std::string::npos; at = errors.find(mark, at + 1))
        {
            const size_t line = errors.rfind('\n', at) + 1; // npos + 1 is 0
            ADD_FAILURE() << "the game reported: "
                          << errors.substr(line, errors.find('\n', at) - line);
        }
    }
    // BLOTCH_E2E_KEEP=1 keeps the working directory (output, pictures) for a look afterwards.
    if (std::getenv("BLOTCH_E2E_KEEP"))
    {
        std::fprintf(stderr, "kept %s\n", dir.c_str());
        return;
    }
    std::error_code ignored;
    fs::remove_all(dir, ignored);
}

std::string GameProcess::dataPath(const std::string& relative) const
{
    return dir + "/data/" + relative;
}

void GameProcess::removeData(const std::string& relative)
{
    std::error_code ignored;
    fs::remove_all(dataPath(relative), ignored);
}

void GameProcess::writeData(const std::string& relative, const std::string& bytes)
{
    const fs::path path = dataPath(relative);
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

bool GameProcess::start(const std::vector<std::string>& environment)
{
    const std::string out = dir + "/stdout.txt";
    const std::string err = dir + "/stderr.txt";
    // Unbuffered output, so the test sees each line as the game writes it.
    std::vector<const char*> argv{"stdbuf", "-o0", "-e0", binary.c_str()};
    for (const std::string& argument : arguments)
    {
        argv.push_back(argument.c_str());
    }
    argv.push_back(nullptr);
    pid = fork();
    if (pid < 0)
    {
        return false;
    }
    if (pid == 0)
    {
        // A test killed by a timeout takes its game with it.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (chdir(dir.c_str()) != 0)
        {
            _exit(127);
        }
        const int outFd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int errFd = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(outFd, 1);
        dup2(errFd, 2);
        const int nullFd = open("/dev/null", O_RDONLY);
        dup2(nullFd, 0);
        // Every GL error the driver sees is printed, and fails the test (see the destructor).
        setenv("BLOTCH_GL_DEBUG", "1", 0);
        // The game's settings and pictures stay in the test's folder. The GL driver's cache
        // stays where it was, so starts are as quick as ever.
        if (!std::getenv("XDG_CACHE_HOME") && std::getenv("HOME"))
        {
            setenv("XDG_CACHE_HOME", (std::string(std::getenv("HOME")) + "/.cache").c_str(), 1);
        }
        setenv("HOME", homeDir().c_str(), 1);
        setenv("XDG_CONFIG_HOME", configDir().c_str(), 1);
        // stdbuf preloads its library ahead of everything, which a sanitized game would refuse.
        const char* asan = std::getenv("ASAN_OPTIONS");
        const std::string options = std::string(asan ? asan : "") + ":verify_asan_link_order=0";
        setenv("ASAN_OPTIONS", options.c_str(), 1);
        for (const std::string& entry : environment)
        {
            putenv(const_cast<char*>(entry.c_str()));
        }
        execv("/usr/bin/stdbuf", const_cast<char* const*>(argv.data()));
        execv(binary.c_str(), const_cast<char* const*>(argv.data() + 3));
        _exit(127);
    }
    return true;
}

bool GameProcess::launch(const std::vector<std::string>& environment)
{
    return start(environment) &&
           waitForError("[SUCCESS] - Successfully started Main Loop", START_SECONDS) &&
           window() != 0;
}

bool GameProcess::running()
{
    if (pid <= 0 || exitStatus)
    {
        return false;
    }
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) == pid)
    {
        exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return false;
    }
    return true;
}

std::optional<int> GameProcess::waitExit(double seconds)
{
    waitUntil(seconds, [this] { return !running(); });
    return exitStatus;
}

void GameProcess::kill()
{
    if (running())
    {
        ::kill(pid, SIGKILL);
        int status = 0;
        waitpid(pid, &status, 0);
        exitStatus = 128 + SIGKILL;
    }
}

void GameProcess::sendSignal(int number)
{
    if (running())
    {
        ::kill(pid, number);
    }
}

bool GameProcess::waitForError(const std::string& text, double seconds)
{
    return waitUntil(seconds, [&] { return errorText().find(text) != std::string::npos; });
}

bool GameProcess::startMatch(double seconds)
{
    const double end = now() + seconds;
    while (now() < end && running())
    {
        key("Return");
        if (waitForMatch(std::min(5.0, end - now())))
        {
            return true;
        }
    }
    return false;
}

bool GameProcess::waitForMatch(double seconds)
{
    static const std::regex countLine("\n[0-9]+\n");
    if (!waitUntil(seconds,
                   [&] { return !running() || std::regex_search(outputText(), countLine); }) ||
        !running())
    {
        return false;
    }
    pause(0.5);
    return true;
}

std::string GameProcess::errorText() const
{
    return readFile(dir + "/stderr.txt");
}
std::string GameProcess::outputText() const
{
    return readFile(dir + "/stdout.txt");
}

unsigned long GameProcess::window(double seconds)
{
    if (windowId)
    {
        return windowId;
    }
    std::string found;
    const auto shown = [&]
    {
        found = running() ? runCommand("xdotool search --all --onlyvisible --pid " +
                                       std::to_string(pid) + " --name '^Blotch$' 2>/dev/null")
                          : "";
        return !found.empty() || !running();
    };
    windowId = waitUntil(seconds, shown, 0.1) && !found.empty() ? std::stoul(found) : 0;
    return windowId;
}

void GameProcess::focus()
{
    if (window())
    {
        runCommand("timeout 5 xdotool windowfocus --sync " + std::to_string(windowId) +
                   " 2>/dev/null");
    }
}

void GameProcess::key(const std::string& keysym)
{
    focus();
    runCommand("xdotool key --delay 30 " + keysym + " 2>/dev/null");
}

void GameProcess::mouseMoveRelative(int dx, int dy)
{
    focus();
    runCommand("xdotool mousemove_relative -- " + std::to_string(dx) + " " + std::to_string(dy));
}

void GameProcess::click(int button)
{
    focus();
    runCommand("xdotool click " + std::to_string(button));
}

bool GameProcess::closeWindow()
{
    if (!window())
    {
        return false;
    }
    Display* x = XOpenDisplay(nullptr);
    if (!x)
    {
        return false;
    }
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = windowId;
    event.xclient.message_type = XInternAtom(x, "WM_PROTOCOLS", False);
    event.xclient.format = 32;
    event.xclient.data.l[0] = static_cast<long>(XInternAtom(x, "WM_DELETE_WINDOW", False));
    event.xclient.data.l[1] = CurrentTime;
    const bool sent = XSendEvent(x, windowId, False, NoEventMask, &event) != 0;
    XFlush(x);
    XCloseDisplay(x);
    return sent;
}

bool GameProcess::screenshot(const std::string& path)
{
    if (!window())
    {
        return false;
    }
    int status = 0;
    runCommand("import -window " + std::to_string(windowId) + " png24:" + path + " 2>/dev/null",
               &status);
    return status == 0 && fs::exists(path);
}

PrivateDisplay::PrivateDisplay(const std::string& screen)
{
    if (const char* current = std::getenv("DISPLAY"))
    {
        previous = current;
        hadPrevious = true;
    }
    // Xvfb picks a free display number itself and writes it to the pipe once it listens.
    int fds[2];
    if (pipe(fds) != 0)
    {
        return;
    }
    pid = fork();
    if (pid == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(fds[0]);
        const int nullFd = open("/dev/null", O_RDWR);
        dup2(nullFd, 0);
        dup2(nullFd, 1);
        dup2(nullFd, 2);
        const std::string fd = std::to_string(fds[1]);
        execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", screen.c_str(), "-noreset",
               "-nolisten", "tcp", static_cast<char*>(nullptr));
        _exit(127);
    }
    close(fds[1]);
    std::string number;
    char c;
    while (pid > 0 && read(fds[0], &c, 1) == 1 && c != '\n')
    {
        number += c;
    }
    close(fds[0]);
    if (number.empty())
    {
        return;
    }
    name = ":" + number;
    setenv("DISPLAY", name.c_str(), 1);
}

PrivateDisplay::~PrivateDisplay()
{
    if (pid > 0)
    {
        ::kill(pid, SIGTERM);
        waitpid(pid, nullptr, 0);
    }
    if (hadPrevious)
    {
        setenv("DISPLAY", previous.c_str(), 1);
    }
    else
    {
        unsetenv("DISPLAY");
    }
}
