#include "tests/tools/program.h"

#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ostream>
#include <utility>

namespace {

/// A file without a name, with this in it.
int memoryFile(const std::string& content = {}) {
    const int file = memfd_create("test", MFD_CLOEXEC);
    if (file == -1 || pwrite(file, content.data(), content.size(), 0) != static_cast<ssize_t>(content.size()))
        abort();
    return file;
}

std::string readAndClose(int file) {
    std::string text;
    char bytes[4096];
    lseek(file, 0, SEEK_SET);
    for (ssize_t count; (count = read(file, bytes, sizeof bytes)) > 0;)
        text.append(bytes, static_cast<size_t>(count));
    close(file);
    return text;
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
    return stream << "status " << outcome.status << "\n--- out\n"
                  << outcome.out << "--- err\n"
                  << outcome.err << "---";
}

Outcome runLinx(const std::vector<std::string>& arguments, const std::string& input) {
    return LinxRun(arguments, input).finish();
}

Outcome runLinxOnTerminal(const std::vector<std::string>& arguments, uint16_t columns) {
    const Ends terminal = openTerminal();
    const winsize size{24, columns, 0, 0};
    ioctl(terminal.write, TIOCSWINSZ, &size);
    const int in = memoryFile();
    const int err = memoryFile();
    Program program(LINX_PROGRAM, arguments, {in, terminal.write, err});
    close(terminal.write);
    close(in);
    Outcome outcome;
    outcome.out = readAndClose(terminal.read);
    outcome.out.erase(std::remove(outcome.out.begin(), outcome.out.end(), '\r'), outcome.out.end());
    outcome.status = program.awaitEnd();
    outcome.err = readAndClose(err);
    return outcome;
}

int statusWithoutReader(const std::vector<std::string>& arguments) {
    const Ends pipe = openPipe();
    close(pipe.read);
    const int in = memoryFile();
    const int err = memoryFile();
    const int status = Program(LINX_PROGRAM, arguments, {in, pipe.write, err}).awaitEnd();
    for (const int file : {in, err, pipe.write}) close(file);
    return status;
}

LinxRun::LinxRun(const std::vector<std::string>& arguments, const std::string& input)
    : in_(memoryFile(input)),
      out_(memoryFile()),
      err_(memoryFile()),
      program_(LINX_PROGRAM, arguments, {in_, out_, err_}) {
    close(in_);
}

LinxRun::~LinxRun() {
    if (out_ == -1) return;
    close(out_);
    close(err_);
}

Outcome LinxRun::finish() {
    Outcome outcome;
    outcome.status = program_.awaitEnd();
    outcome.out = readAndClose(std::exchange(out_, -1));
    outcome.err = readAndClose(err_);
    return outcome;
}
