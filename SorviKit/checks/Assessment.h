#pragma once

#include <optional>

/// The result of the on-device checks of one shot. A plain value.
struct Assessment {
    double sharpness = 0;  ///< larger is sharper; 0 when it could not be measured
    int faces = 0;         ///< faces of at least 4 % of the picture's width
    int eyesClosed = 0;    ///< faces with both eyes closed
    std::optional<double> faceQuality; ///< best face quality 0…1, absent when no face was seen

    friend bool operator==(const Assessment &, const Assessment &) = default;
};
