// An arena that somebody scribbles over, while others work in it and between two looks at it, and one that was
// garbled before anybody opened it. Whatever is in it: nobody crashes, hangs or touches anything outside of it.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "tests/ambush/ambush.h"
#include "tests/fuzz/arena/crowd.h"
#include "tests/fuzz/arena/image.h"
#include "tests/fuzz/claim.h"
#include "tests/fuzz/playground.h"
#include "tests/kit/look_around.h"

namespace fuzz {
namespace {

/// What is none of the arena's business.
class Bystander {
public:
    explicit Bystander(const std::string& domain) : path_(domain + "/bystander") {
        close(open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
    ~Bystander() { claim(access(path_.c_str(), F_OK) == 0, "no other file of the directory is touched"); }
    Bystander(const Bystander&) = delete;
    Bystander& operator=(const Bystander&) = delete;

private:
    const std::string path_;
};

void layAmbush(Image& image, Input& input) {
    constexpr uint32_t widths[] = {1u << 4, 1u << 8, 1u << 12, 1u << 16};
    const uint32_t looks = 1 + input.below(widths[input.below(4)]);
    ambush::lay(looks, [&] {
        image.garble(input);
        if (input.below(2) == 0) layAmbush(image, input);
    });
}

void replace(Image& image, Input& input) {
    constexpr int64_t lengths[] = {0, 1, 4095, 4096, 1 << 20};
    const uint32_t choice = input.below(16);
    const int64_t change = choice < 5 ? lengths[choice] : 0;
    image.replace(choice % 2 == 0 ? image.length() - std::min(image.length(), change) : image.length() + change);
}

/// As the program linx does.
void look(const Playground& playground) {
    ambush::begin();
    linx::inspect::Place place;
    if (!place.openDirectory(playground.path())) return;
    const std::unique_ptr<linxtest::Sight> sight = linxtest::lookAround(place);
    if (sight != nullptr)
        claim(sight->endpoints.size() < linx::slotCount, "no more endpoints are seen than there may be");
}

void step(const Playground& playground, Crowd& crowd, Image& image, Input& input) {
    switch (input.below(8)) {
        case 0:
            return layAmbush(image, input);
        case 1:
        case 2:
            return image.garble(input);
        case 3: {
            const uint32_t choice = input.below(8);
            return choice == 0 ? replace(image, input) : choice == 1 ? look(playground) : crowd.act();
        }
        default:
            return crowd.act();
    }
}

void play(Input& input) {
    constexpr uint32_t mostSteps = 200;
    const Playground playground;
    const Bystander bystander(playground.path());
    Crowd crowd(input);
    const uint32_t beginning = input.below(4);
    crowd.settleIn();
    Image image(playground.path());
    if (beginning == 1) crowd.closeAll();
    if (beginning >= 2) image.replace(image.length());
    for (uint32_t left = mostSteps; left != 0 && !input.empty(); --left) step(playground, crowd, image, input);
    ambush::lift();
    crowd.closeAll();
    claim(image.isOfItsLength(), "the arena stays as long as it was");
}

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    fuzz::play(input);
    return 0;
}
