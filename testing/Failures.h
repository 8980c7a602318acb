#ifndef LINXIPC_TESTING_FAILURES_H
#define LINXIPC_TESTING_FAILURES_H

#include <deque>
#include <initializer_list>
#include <map>
#include <string>

namespace linx::testing {

/// The failures of the fifteen operations that are to happen.
class Failures {
public:
    /// Both throw `std::invalid_argument` when there is no such operation.
    void add(const std::string& operation, std::initializer_list<int> errors);
    void setAlways(const std::string& operation, int error);

    /// The error with which this call is to fail, 0 when it is not.
    int next(const std::string& operation);

    void clear();

private:
    std::map<std::string, std::deque<int>> next_;
    std::map<std::string, int> always_;
};

}  // namespace linx::testing

#endif
