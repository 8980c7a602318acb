#include "tools/screen.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

namespace tools {
namespace {

constexpr char enter[] = "\033[?1049h\033[?25l";
constexpr char leave[] = "\033[?25h\033[?1049l";

winsize sizeOfTerminal() {
    winsize size{};
    ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
    return size;
}

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
    return isTerminal_ ? sizeOfTerminal().ws_row : 0;
}

size_t Screen::columns() const {
    return isTerminal_ ? sizeOfTerminal().ws_col : 0;
}

void Screen::clear() {
    if (isTerminal_) std::fputs("\033[H\033[J", stdout);
}

char Screen::key(std::chrono::milliseconds time) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    char key = 0;
    const bool isPressed = isTerminal_ && poll(&input, 1, static_cast<int>(time.count())) == 1;
    if (isPressed && read(STDIN_FILENO, &key, 1) == 1) return key;
    if (!isTerminal_ || isPressed) std::this_thread::sleep_for(time);
    return 0;
}

}  // namespace tools
