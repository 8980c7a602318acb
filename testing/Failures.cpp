#include "testing/Failures.h"

#include <set>
#include <stdexcept>

namespace linx::testing {

namespace {

/// A name that is wrong would never fail, and the test would pass for the wrong reason.
const std::string& checked(const std::string& operation) {
    static const std::set<std::string> operations = {
        "linx_open",   "linx_get_descriptor", "linx_close",     "linx_hunt",        "linx_attach",
        "linx_alloc",  "linx_free_buf",       "linx_send",      "linx_receive",     "linx_receive_w_tmo",
        "linx_sender", "linx_get_name",       "linx_free_name", "linx_request_tmo", "linx_cancel_tmo"};
    if (operations.count(operation) == 0) throw std::invalid_argument("no operation of LINX: " + operation);
    return operation;
}

}  // namespace

void Failures::add(const std::string& operation, std::initializer_list<int> errors) {
    std::deque<int>& pending = next_[checked(operation)];
    pending.insert(pending.end(), errors);
}

void Failures::setAlways(const std::string& operation, int error) {
    always_[checked(operation)] = error;
}

int Failures::next(const std::string& operation) {
    std::deque<int>& pending = next_[operation];
    if (pending.empty()) return always_[operation];
    const int error = pending.front();
    pending.pop_front();
    return error;
}

void Failures::clear() {
    next_.clear();
    always_.clear();
}

}  // namespace linx::testing
