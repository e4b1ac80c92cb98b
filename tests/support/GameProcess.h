// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

// Runs the real blotch binary for end-to-end tests: in a fresh temporary working directory with
// its own data/ tree and its own home and config folders (the player's settings and pictures are
// never touched), on the current X display, with standard output and error captured to files.
// Input goes through xdotool (real X events), pictures come from ImageMagick's import.
class GameProcess
{
public:
    enum class Data
    {
        Link, // data/ is a link to the repository's data
        Copy, // data/ is a private copy that the test may damage
        None  // no data/: the game must find its data elsewhere
    };

    explicit GameProcess(Data data = Data::Link);
    ~GameProcess(); // kills the game if it still runs and removes the directory
    GameProcess(const GameProcess&) = delete;
    GameProcess& operator=(const GameProcess&) = delete;

    const std::string& workDir() const { return dir; }
    // The game's $HOME and $XDG_CONFIG_HOME, inside the working directory; an environment entry
    // given to start() may point them elsewhere.
    std::string homeDir() const { return dir + "/home"; }
    std::string configDir() const { return dir + "/home/.config"; }
    // Path inside the working directory's data/ (only meaningful with Data::Copy for writes).
    std::string dataPath(const std::string& relative) const;
    void removeData(const std::string& relative);
    void writeData(const std::string& relative, const std::string& bytes);

    // How long a start may take: software GL on a loaded CI machine can be slow.
    static constexpr double START_SECONDS = 30.0;

    // Runs BINARY (the build's game unless set) with ARGUMENTS after its name.
    void setCommand(std::string binary, std::vector<std::string> arguments = {});
    // Starts the binary; extra "NAME=value" entries are added to its environment.
    bool start(const std::vector<std::string>& environment = {});
    // Starts the binary and waits until its main loop runs and its window is mapped.
    bool launch(const std::vector<std::string>& environment = {});
    bool running();
    // Waits until the captured standard error contains TEXT.
    bool waitForError(const std::string& text, double seconds);
    // Presses Return until a match has been built (a key sent before the window has settled can
    // be lost), and waits for it like waitForMatch.
    bool startMatch(double seconds);
    // Waits until a match has been built: the import's vertex count has been printed, and a
    // moment more for the first frames.
    bool waitForMatch(double seconds);
    std::string errorText() const;
    std::string outputText() const;

    // The game's X window, waiting for it to be mapped. 0 when it never appears.
    unsigned long window(double seconds = 20.0);
    void key(const std::string& keysym);
    // Gives the game's window the keyboard focus.
    void focus();
    void mouseMoveRelative(int dx, int dy);
    void click(int button);
    // Asks the window to close, as a window manager's close button does.
    bool closeWindow();
    // Captures the game's window to PATH (PNG).
    bool screenshot(const std::string& path);

    // The exit status once the game has ended; nothing if it is still running after SECONDS.
    std::optional<int> waitExit(double seconds);
    void kill();
    // Sends signal NUMBER to the game without waiting for it.
    void sendSignal(int number);

private:
    std::string dir;
    std::string binary = BLOTCH_BINARY;
    std::vector<std::string> arguments;
    int pid = -1;
    std::optional<int> exitStatus;
    unsigned long windowId = 0;
};

// Runs a shell command and returns what it printed on standard output.
std::string runCommand(const std::string& command, int* status = nullptr);

// A private X server (Xvfb) on a display of its own, for end-to-end tests that run beside each
// other: their windows, focus, keys and clicks never meet. DISPLAY names it while it lives.
class PrivateDisplay
{
public:
    // SCREEN is Xvfb's "WIDTHxHEIGHTxDEPTH".
    explicit PrivateDisplay(const std::string& screen = "1280x1024x24");
    ~PrivateDisplay(); // stops the server and gives DISPLAY back
    PrivateDisplay(const PrivateDisplay&) = delete;
    PrivateDisplay& operator=(const PrivateDisplay&) = delete;

    bool ready() const { return !name.empty(); }
    const std::string& display() const { return name; }

private:
    int pid = -1;
    std::string name;     // ":N" once the server answers
    std::string previous; // DISPLAY before, if any
    bool hadPrevious = false;
};
