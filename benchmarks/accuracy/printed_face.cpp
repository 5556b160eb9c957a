#include "accuracy/printed_face.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace tarvex::benchmarks {

std::expected<MarkedFaces, std::string> readMarkedFaces(const std::filesystem::path& list) {
    MarkedFaces faces;
    std::ifstream file(list);
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with('#')) continue;
        std::istringstream words(line);
        std::string photograph;
        FacePlace place;
        if (!(words >> photograph >> place.x >> place.y >> place.eyeSpacing) || !(place.eyeSpacing > 0))
            return std::unexpected(list.string() + " has a line that marks no face: " + line);
        std::string word;
        words >> word;
        place.inProfile = word == "profile";
        if (!word.empty() && !place.inProfile)
            return std::unexpected(list.string() + " says of a face what has no meaning: " + line);
        faces[photograph].push_back(place);
    }
    if (faces.empty()) return std::unexpected(list.string() + " cannot be read");
    return faces;
}

std::expected<std::vector<PrintedFace>, std::string> printedFaces(const Picture& photograph, const std::string& name,
                                                                  const std::vector<FacePlace>& faces) {
    std::vector<PrintedFace> printed;
    for (const FacePlace& face : faces) {
        const int half = static_cast<int>(face.eyeSpacing * 2.2);
        const int left = static_cast<int>(face.x) - half;
        const int top = static_cast<int>(face.y + 0.5 * face.eyeSpacing) - half;
        const std::string faceName = name + " " + std::to_string(static_cast<int>(face.x));
        if (left < 0 || top < 0 || left + 2 * half > photograph.width || top + 2 * half > photograph.height)
            return std::unexpected("the face " + faceName + " is too near the photograph's edge");
        printed.push_back({.surroundings = photograph.part(left, top, 2 * half),
                           .eyeSpacing = face.eyeSpacing,
                           .inProfile = face.inProfile,
                           .name = faceName});
    }
    return printed;
}

std::vector<camera::Frame> partsWithoutFaces(const Picture& photograph, const std::vector<FacePlace>& faces) {
    std::vector<camera::Frame> parts;
    const int shorter = std::min(photograph.width, photograph.height);
    for (const double part : {0.5, 0.3}) {
        const int size = static_cast<int>(shorter * part);
        for (int top = 0; top + size <= photograph.height; top += size / 2) {
            for (int left = 0; left + size <= photograph.width; left += size / 2) {
                const bool holdsFace = std::ranges::any_of(faces, [&](const FacePlace& face) {
                    const double reach = 2 * face.eyeSpacing;
                    return face.x > left - reach && face.x < left + size + reach && face.y > top - reach &&
                           face.y < top + size + reach;
                });
                if (!holdsFace) parts.push_back(photograph.part(left, top, size));
            }
        }
    }
    return parts;
}

}  // namespace tarvex::benchmarks
