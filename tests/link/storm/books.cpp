#include "tests/link/storm/books.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace linkstorm {

void Books::complain(const std::string& text) {
    const uint32_t place = complaintCount++;
    if (place >= std::size(complaints)) return;
    std::strncpy(complaints[place], text.c_str(), sizeof complaints[place] - 1);
}

std::vector<std::string> Books::allComplaints() const {
    const size_t count = std::min<size_t>(complaintCount, std::size(complaints));
    return std::vector<std::string>(complaints, complaints + count);
}

}  // namespace linkstorm
