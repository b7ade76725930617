// Seeded random inputs and tolerant comparisons for the geometry suites.
#pragma once

#include <qel/matrix4.h>
#include <qel/quaternion.h>
#include <qel/vector3.h>

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace qeltest
{

class GeometryRandom
{
public:
    explicit GeometryRandom(unsigned seed) : m_Engine(seed) {}

    float Uniform(float low, float high)
    {
        return std::uniform_real_distribution<float>(low, high)(m_Engine);
    }
    int Int(int low, int high) { return std::uniform_int_distribution<int>(low, high)(m_Engine); }
    qel::Vector3 Point(float extent)
    {
        return {Uniform(-extent, extent), Uniform(-extent, extent), Uniform(-extent, extent)};
    }
    qel::Vector3 Direction()
    {
        for (;;)
        {
            const qel::Vector3 v = Point(1.0f);
            const float l = v.LengthSquared();
            if (l > 0.01f && l <= 1.0f)
                return v.Normalized();
        }
    }
    qel::Quaternion Rotation()
    {
        return qel::Quaternion::FromAxisAngle(Direction(), Uniform(-3.14159f, 3.14159f));
    }

private:
    std::mt19937 m_Engine;
};

inline ::testing::AssertionResult Near(const qel::Vector3& a, const qel::Vector3& b,
                                       float tolerance)
{
    if ((a - b).Length() <= tolerance)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "(" << a.x << ", " << a.y << ", " << a.z << ") vs ("
                                         << b.x << ", " << b.y << ", " << b.z << ")";
}

inline ::testing::AssertionResult Near(const qel::Matrix4& a, const qel::Matrix4& b,
                                       float tolerance)
{
    for (int i = 0; i < 16; ++i)
        if (!(std::fabs(a.Data()[i] - b.Data()[i]) <= tolerance))
            return ::testing::AssertionFailure()
                   << "element " << i << ": " << a.Data()[i] << " vs " << b.Data()[i];
    return ::testing::AssertionSuccess();
}

} // namespace qeltest
