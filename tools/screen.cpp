#include "tools/screen.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <thread>

namespace tools {
namespace {

// Lines that are too long are cut: they would push others off the screen.
constexpr char enter[] = "\033[?1049h\033[?25l\033[?7l";
constexpr char leave[] = "\033[?7h\033[?25h\033[?1049l";

}  // namespace

Screen::Screen() : isTerminal_(isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1) {
    if (!isTerminal_ || tcgetattr(STDIN_FILENO, &before_) == -1) return;
    termios now = before_;
    now.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &now);
    std::fputs(enter, stdout);
}

Screen::~Screen() {
    if (!isTerminal_) return;
    std::fputs(leave, stdout);
    std::fflush(stdout);
    tcsetattr(STDIN_FILENO, TCSANOW, &before_);
}

size_t Screen::rows() const {
    winsize size{};
    return isTerminal_ && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_row : 0;
}

void Screen::clear() {
    if (isTerminal_) std::fputs("\033[H\033[J", stdout);
}

char Screen::key(std::chrono::milliseconds time) {
    constexpr std::chrono::milliseconds longest(std::numeric_limits<int>::max());
    // Without a keyboard too: unlike a sleep, it ends when a POSIX signal asks for the end.
    pollfd input{isTerminal_ ? STDIN_FILENO : -1, POLLIN, 0};
    char key = 0;
    const bool isPressed = poll(&input, 1, static_cast<int>(std::min(time, longest).count())) == 1;
    if (isPressed && read(STDIN_FILENO, &key, 1) == 1) return key;
    if (isPressed) std::this_thread::sleep_for(time);
    return 0;
}

}  // namespace tools
