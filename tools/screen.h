#ifndef LINXIPC_TOOLS_SCREEN_H
#define LINXIPC_TOOLS_SCREEN_H

#include <termios.h>

#include <chrono>
#include <string>

namespace tools {

/// The terminal while a verb redraws it: the keys come at once and unseen, the cursor is hidden, and what stood there
/// before comes back at the end. Where standard input or output is no terminal it does nothing of that.
class Screen {
public:
    Screen();
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    bool isTerminal() const { return isTerminal_; }

    /// Rows of text that fit; 0 where there is no end to them.
    size_t rows() const;

    /// What is printed next comes in the place of all that was.
    void clear();

    /// Waits for a key; 0 when none was pressed in that time. Where the input has ended, none ever is.
    char key(std::chrono::milliseconds time);

private:
    bool isTerminal_ = false;
    termios before_{};
};

}  // namespace tools

#endif
