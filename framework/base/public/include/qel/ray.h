// A half-line: origin + t * direction for t >= 0. Hit distances are in units
// of the direction's length, so a unit direction gives true distances.
#pragma once

#include <qel/vector3.h>

namespace qel
{

struct Ray
{
    Vector3 origin;
    Vector3 direction;

    Ray() = default;
    constexpr Ray(const Vector3& origin_, const Vector3& direction_)
        : origin(origin_), direction(direction_)
    {
    }

    Vector3 At(float t) const { return origin + direction * t; }
};

} // namespace qel
