#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// How one user sees the app.
struct Look {
    /// Also part of the file names.
    std::string name;
    /// The value of QUORVANE_APPEARANCE.
    std::string appearance;
    /// The value of LANGUAGE, and the dashboard's subtitle in that language.
    std::string language, subtitle;
};

/// A saved picture: the screen that it shows and the file.
struct ScreenPicture {
    std::string screen;
    std::filesystem::path file;
};

/// Visits the screens of the app on a new device and saves pictures of them in all sizes: of a small and a
/// large phone, and of a tablet and a computer. Returns the pictures in the order of the visit, for each
/// screen from narrow to wide.
///
/// `programs` is the build folder. Threads: any, several at a time. Errors: `std::runtime_error` if a screen
/// does not appear or is not in the language.
std::vector<ScreenPicture> takePictures(const Look& look, const std::filesystem::path& programs,
                                        const std::filesystem::path& folder);
