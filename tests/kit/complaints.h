#ifndef LINXIPC_TESTS_KIT_COMPLAINTS_H
#define LINXIPC_TESTS_KIT_COMPLAINTS_H

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

namespace linxtest {

/// What processes of a test note that must not be, in memory that they share and that was zero at first. The first few
/// are kept.
struct Complaints {
    std::atomic<uint32_t> complaintCount;
    char complaints[32][256];

    void complain(const std::string& text) {
        const uint32_t place = complaintCount++;
        if (place < std::size(complaints)) std::strncpy(complaints[place], text.c_str(), sizeof complaints[place] - 1);
    }

    std::vector<std::string> allComplaints() const {
        const size_t count = std::min<size_t>(complaintCount, std::size(complaints));
        return std::vector<std::string>(complaints, complaints + count);
    }
};

}  // namespace linxtest

#endif
