#ifndef LINXIPC_TESTS_LINK_ENGINE_MAKERS_H
#define LINXIPC_TESTS_LINK_ENGINE_MAKERS_H

#include <unistd.h>

#include "link/engine/local_engine.h"

namespace linktest {

using linx::link::Engine;
using linx::link::LocalEngine;

/// Makes engines of one kind that know each other: one that waits, and others that dial it. That which waits is made
/// first.
class LocalMaker {
public:
    LocalMaker() { address_ = "linx-engine." + std::to_string(getpid()) + "." + std::to_string(++made_); }

    std::unique_ptr<Engine> listener() {
        auto engine = std::make_unique<LocalEngine>(linx::link::LocalNode{"listener", address_},
                                                    std::vector<linx::link::LocalNode>{{"dialler", ""}});
        return engine->isListening() ? std::move(engine) : nullptr;
    }
    std::unique_ptr<Engine> dialler() { return dialling("dialler"); }
    std::unique_ptr<Engine> stranger() { return dialling("stranger"); }

private:
    std::unique_ptr<Engine> dialling(const char* key) const {
        return std::make_unique<LocalEngine>(linx::link::LocalNode{key, ""},
                                             std::vector<linx::link::LocalNode>{{"listener", address_}});
    }

    static inline int made_ = 0;
    std::string address_;
};

}  // namespace linktest

#endif
