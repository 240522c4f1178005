#include "Tools/Tour/Gallery.h"

#include "Tools/Tour/ThrowawayDevice.h"

#include <fmt/format.h>

#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

std::vector<ScreenPicture> takePictures(const Look& look, const fs::path& programs, const fs::path& folder)
{
    static constexpr std::pair<int, int> sizes[] = {
        {320, 568}, {390, 844}, {768, 1024}, {1024, 768}, {1366, 1024}};
    ThrowawayDevice device(programs);
    device.setEnvironment("QUORVANE_APPEARANCE", look.appearance);
    device.setEnvironment("LANGUAGE", look.language);
    const auto application = device.startApplication({"--log-stderr", "--push", "off"});
    const DrivenWindow window = device.window();
    std::vector<ScreenPicture> pictures;
    const auto take = [&](const std::string& screen, std::string_view item) {
        for (const auto& [width, height] : sizes) {
            window.resize(width, height);
            window.waitFor(item);
            pictures.push_back(
                {screen, folder / fmt::format("{}-{}-{}x{}.png", screen, look.name, width, height)});
            window.grab(pictures.back().file);
        }
    };
    take("welcome", "welcome.content");
    window.tap("welcome.getStarted");
    take("prompt", "shell.allow");
    window.tap("shell.dontAllow");
    window.waitUntilGone("shell.dontAllow");
    take("dashboard", "dashboard.warning");
    if (const std::string subtitle = window.text("dashboard.subtitle"); subtitle != look.subtitle)
        throw std::runtime_error(fmt::format("expected \"{}\", not \"{}\"", look.subtitle, subtitle));
    window.tap("dashboard.openSettings");
    take("settings", "shell.settings.done");
    window.tap("shell.settings.done");
    window.waitUntilGone("shell.settings.done");
    window.tap("dashboard.card.person.badge.key");
    take("detail", "detail.title");
    return pictures;
}
