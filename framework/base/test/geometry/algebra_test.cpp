#include "geometrytesthelpers.h"

#include <qel/matrix3.h>
#include <qel/matrix4.h>
#include <qel/quaternion.h>

// glm, when the build found it, is a second reference for the products and
// the camera constructions.
#if defined(QEL_TEST_GLM)
#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/type_ptr.hpp>
#endif

#include <gtest/gtest.h>

using namespace qel;
using qeltest::GeometryRandom;
using qeltest::Near;

namespace
{

const float kPi = 3.14159265f;

Matrix4 RandomAffine(GeometryRandom& random)
{
    const Vector3 scale(random.Uniform(0.2f, 3), random.Uniform(0.2f, 3), random.Uniform(0.2f, 3));
    return Matrix4::Compose(random.Point(10), random.Rotation(), scale);
}

#if defined(QEL_TEST_GLM)
Matrix4 FromGlm(const glm::mat4& m)
{
    Matrix4 result;
    std::copy(glm::value_ptr(m), glm::value_ptr(m) + 16, &result.columns[0].x);
    return result;
}
#endif

} // namespace

TEST(Matrix, InverseTimesMatrixIsIdentityForAffineAndGeneralMatrices)
{
    GeometryRandom random(11);
    for (int i = 0; i < 500; ++i)
    {
        Matrix4 m = RandomAffine(random);
        if (i % 2) // general, projective, not near-singular
            do
                for (int k = 0; k < 16; ++k)
                    (&m.columns[0].x)[k] = random.Uniform(-2, 2);
            while (std::fabs(m.Determinant()) < 0.5f);
        Matrix4 inverse;
        ASSERT_TRUE(m.Inverse(inverse));
        EXPECT_TRUE(Near(m * inverse, Matrix4::Identity(), 2e-3f)) << i;
        EXPECT_TRUE(Near(inverse * m, Matrix4::Identity(), 2e-3f)) << i;
        EXPECT_NEAR(m.Determinant() * inverse.Determinant(), 1.0f, 2e-3f);

        const Matrix3 l = m.Linear();
        Matrix3 li;
        if (l.Inverse(li))
        {
            const Matrix3 p = l * li;
            for (int r = 0; r < 3; ++r)
                for (int c = 0; c < 3; ++c)
                    EXPECT_NEAR(p(r, c), r == c ? 1.0f : 0.0f, 2e-3f);
        }
    }
}

TEST(Matrix, SingularMatricesRefuseToInvertAndTinyRegularOnesDoNot)
{
    Matrix4 flat = Matrix4::Scale(Vector3(1, 0, 1));
    Matrix4 untouched = Matrix4::Translation(Vector3(7, 7, 7));
    EXPECT_FALSE(flat.Inverse(untouched));
    EXPECT_EQ(untouched, Matrix4::Translation(Vector3(7, 7, 7)));
    // Two equal rows.
    Matrix4 rows = Matrix4::Identity();
    rows(1, 0) = 1;
    rows(1, 1) = 0;
    EXPECT_FALSE(rows.Inverse(untouched));
    Matrix3 m3;
    EXPECT_FALSE(Matrix3(Vector3(1, 2, 3), Vector3(2, 4, 6), Vector3(0, 0, 1)).Inverse(m3));

    Matrix4 tiny = Matrix4::Scale(Vector3(1e-6f)), inverse;
    ASSERT_TRUE(tiny.Inverse(inverse));
    EXPECT_NEAR(inverse(0, 0), 1e6f, 1.0f);
}

TEST(Matrix, ProductComposesTransformsRightToLeftAndMatchesGlm)
{
    GeometryRandom random(12);
    for (int i = 0; i < 100; ++i)
    {
        const Matrix4 a = RandomAffine(random), b = RandomAffine(random);
        const Vector3 p = random.Point(5);
        EXPECT_TRUE(Near((a * b).TransformPoint(p), a.TransformPoint(b.TransformPoint(p)), 1e-3f));
        EXPECT_TRUE(
            Near((a * b).TransformVector(p), a.TransformVector(b.TransformVector(p)), 1e-3f));
        for (int row = 0; row < 4; ++row)
            for (int column = 0; column < 4; ++column)
                EXPECT_EQ(a.Transposed()(row, column), a(column, row));
#if defined(QEL_TEST_GLM)
        glm::mat4 ga, gb;
        std::copy(a.Data(), a.Data() + 16, glm::value_ptr(ga));
        std::copy(b.Data(), b.Data() + 16, glm::value_ptr(gb));
        EXPECT_TRUE(Near(a * b, FromGlm(ga * gb), 1e-3f));
        EXPECT_TRUE(Near(a.Transposed(), FromGlm(glm::transpose(ga)), 0.0f));
#endif
    }
}

TEST(Matrix, ConstructionsFollowTheStatedConventions)
{
    // Counter-clockwise: +x turns to +y about +z.
    EXPECT_TRUE(Near(Matrix4::Rotation(Vector3(0, 0, 2), kPi / 2).TransformPoint(Vector3(1, 0, 0)),
                     Vector3(0, 1, 0), 1e-6f));
    EXPECT_EQ(Matrix4::Translation(Vector3(1, 2, 3)).TransformVector(Vector3(1, 1, 1)),
              Vector3(1, 1, 1));
    EXPECT_EQ(Matrix4::Rotation(Vector3(0.0f), 1.0f), Matrix4::Identity());

    const Vector3 eye(3, 4, 5), target(-1, 0, 2), up(0, 1, 0);
    const Matrix4 view = Matrix4::LookAt(eye, target, up);
    EXPECT_TRUE(Near(view.TransformPoint(eye), Vector3(0.0f), 1e-5f));
    const Vector3 ahead = view.TransformPoint(target);
    EXPECT_NEAR(ahead.x, 0.0f, 1e-5f);
    EXPECT_NEAR(ahead.y, 0.0f, 1e-5f);
    EXPECT_LT(ahead.z, 0.0f); // looks down -z
#if defined(QEL_TEST_GLM)
    EXPECT_TRUE(Near(
        view, FromGlm(glm::lookAtRH(glm::vec3(3, 4, 5), glm::vec3(-1, 0, 2), glm::vec3(0, 1, 0))),
        1e-5f));
#endif
    // Degenerate look-at directions still give a rotation.
    for (const Matrix4& m : {Matrix4::LookAt(eye, eye, up), Matrix4::LookAt(eye, eye + up, up)})
        EXPECT_NEAR(m.Linear().Determinant(), 1.0f, 1e-5f);

    const Matrix4 perspective = Matrix4::Perspective(1.0f, 1.5f, 0.5f, 100.0f);
#if defined(QEL_TEST_GLM)
    EXPECT_TRUE(Near(perspective, FromGlm(glm::perspectiveRH_ZO(1.0f, 1.5f, 0.5f, 100.0f)), 1e-6f));
#endif
    EXPECT_NEAR((perspective * Vector4(0, 0, -0.5f, 1)).Project().z, 0.0f, 1e-6f);
    EXPECT_NEAR((perspective * Vector4(0, 0, -100, 1)).Project().z, 1.0f, 1e-5f);
    const Matrix4 ortho = Matrix4::Orthographic(-2, 4, -1, 3, 1, 10);
#if defined(QEL_TEST_GLM)
    EXPECT_TRUE(Near(ortho, FromGlm(glm::orthoRH_ZO(-2.f, 4.f, -1.f, 3.f, 1.f, 10.f)), 1e-6f));
#endif
    EXPECT_TRUE(Near(ortho.TransformPoint(Vector3(4, 3, -10)), Vector3(1, 1, 1), 1e-6f));
}

TEST(Quaternion, MatrixRoundTripsAndAgreesWithRotate)
{
    GeometryRandom random(13);
    for (int i = 0; i < 1000; ++i)
    {
        // Angles near 0 and near pi exercise every branch of FromMatrix.
        const float angle = i < 100   ? random.Uniform(-1e-3f, 1e-3f)
                            : i < 200 ? kPi - random.Uniform(0, 1e-3f)
                                      : random.Uniform(-kPi, kPi);
        const Vector3 direction = random.Direction();
        const Quaternion q = Quaternion::FromAxisAngle(direction, angle);
        const Matrix3 m = q.ToMatrix3();
        const Quaternion back = Quaternion::FromMatrix(m);
        EXPECT_NEAR(std::fabs(back.Dot(q)), 1.0f, 1e-5f) << i;
        const Vector3 v = random.Point(3);
        EXPECT_TRUE(Near(q.Rotate(v), m * v, 1e-4f));
        EXPECT_TRUE(Near(Matrix4::Rotation(q).TransformPoint(v),
                         Matrix4::Rotation(direction, angle).TransformPoint(v), 1e-3f));
        EXPECT_NEAR(m.Determinant(), 1.0f, 1e-5f);

        Vector3 axis;
        float a;
        q.ToAxisAngle(axis, a);
        EXPECT_NEAR(std::fabs(Quaternion::FromAxisAngle(axis, a).Dot(q)), 1.0f, 1e-5f);

        const Quaternion r = random.Rotation();
        EXPECT_TRUE(Near((q * r).Rotate(v), q.Rotate(r.Rotate(v)), 1e-4f));
        EXPECT_TRUE(Near((q * q.Conjugate()).XYZ(), Vector3(0.0f), 1e-6f));
    }
}

TEST(Quaternion, SlerpHitsItsEndsTakesTheShortArcAndKeepsUnitLength)
{
    GeometryRandom random(14);
    for (int i = 0; i < 300; ++i)
    {
        const Quaternion a = random.Rotation();
        // Some pairs nearly equal, some nearly opposite (the same rotation).
        const Quaternion b = i % 3 == 0 ? (a * Quaternion::FromAxisAngle(random.Direction(), 1e-4f))
                             : i % 3 == 1 ? -a
                                          : random.Rotation();
        EXPECT_NEAR(std::fabs(Quaternion::Slerp(a, b, 0).Dot(a)), 1.0f, 1e-5f);
        EXPECT_NEAR(std::fabs(Quaternion::Slerp(a, b, 1).Dot(b)), 1.0f, 1e-5f);
        const Quaternion mid = Quaternion::Slerp(a, b, 0.5f);
        EXPECT_NEAR(mid.Length(), 1.0f, 1e-5f);
        // Equal angles to both ends, each at most half the way.
        EXPECT_NEAR(std::fabs(mid.Dot(a)), std::fabs(mid.Dot(b)), 1e-4f);
        EXPECT_GE(std::fabs(mid.Dot(a)), std::fabs(a.Dot(b)) - 1e-5f);
    }
    const Quaternion q90 = Quaternion::FromAxisAngle(Vector3(0, 0, 1), kPi / 2);
    EXPECT_TRUE(
        Near(Quaternion::Slerp(Quaternion::Identity(), q90, 1.0f / 3).Rotate(Vector3(1, 0, 0)),
             Vector3(std::cos(kPi / 6), std::sin(kPi / 6), 0), 1e-5f));
}

TEST(Quaternion, FromToTurnsOneDirectionOntoTheOtherEvenWhenOpposite)
{
    GeometryRandom random(15);
    for (int i = 0; i < 200; ++i)
    {
        const Vector3 a = random.Direction();
        const Vector3 b = i % 4 == 0 ? -a : i % 4 == 1 ? a : random.Direction();
        EXPECT_TRUE(Near(Quaternion::FromTo(a * 3, b).Rotate(a), b, 1e-3f)) << i;
    }
    EXPECT_EQ(Quaternion(0, 0, 0, 0).Normalized(), Quaternion::Identity());
}
