// Geometry through the serializer: every type saved with each binary
// writer and read back bit for bit, volumes through their interface, and
// an unknown kind refused.
#include <qel/binaryswapperwriter.h>
#include <qel/binarywriter.h>
#include <qel/exception.h>
#include <qel/genericreader.h>
#include <qel/geometryserialization.h>
#include <qel/inputmemorystream.h>
#include <qel/outputmemorystream.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace
{

using namespace qel;

// Saves with `Writer`, then reads back with the reader the tag picks.
template <class Writer, class Routine>
void RoundTrip(Routine routine)
{
    OutputMemoryStream out;
    {
        Writer writer(&out, nullptr);
        writer.WriteUniqueHeader();
        routine(writer);
    }
    out.Flush();
    u32 size = 0;
    const unsigned char* data = out.GetBuffer(size);
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    InputMemoryStream in(reinterpret_cast<const unsigned char*>(bytes.data()), size);
    std::unique_ptr<Reader> reader(GenericReader::Create(&in, nullptr));
    routine(*reader);
}

template <class Writer>
void EveryType()
{
    Vector2 v2(1.5f, -2);
    Vector3 v3(0.1f, 2e-30f, -7);
    Vector4 v4(1, 2, 3, 4);
    Quaternion q = Quaternion::FromAxisAngle(Vector3(1, 2, 3).Normalized(), 0.7f);
    Matrix4 m4 = Matrix4::Compose(Vector3(1, 2, 3), q, Vector3(2, 2, 2));
    Matrix3 m3 = m4.Linear();
    Plane plane = Plane::FromPoints(Vector3(0, 0, 0), Vector3(1, 0, 0), Vector3(0, 1, 1));
    Ray ray{Vector3(1, 2, 3), Vector3(0, 0, -1)};
    Triangle triangle{Vector3(0, 0, 0), Vector3(1, 0, 0), Vector3(0, 1, 0)};
    BoundingSphere sphere(Vector3(1, 2, 3), 4);
    BoundingBox box(Vector3(1, 1, 1), m3, Vector3(0.5f, 1, 2));
    BoundingCylinder cylinder(Vector3(0, 1, 0), Vector3(0, 1, 0), 2, 0.25f);
    const Triangle pair[2] = {triangle, {Vector3(0, 0, 1), Vector3(1, 0, 1), Vector3(0, 1, 1)}};
    BoundingMesh mesh(pair, 2);

    const Vector2 v2Saved = v2;
    const Vector3 v3Saved = v3;
    const Vector4 v4Saved = v4;
    const Quaternion qSaved = q;
    const Matrix4 m4Saved = m4;
    const Matrix3 m3Saved = m3;
    const Plane planeSaved = plane;
    const Ray raySaved = ray;
    const Triangle triangleSaved = triangle;
    RoundTrip<Writer>(
        [&](Serializer& s)
        {
            if (s.IsReading())
            {
                v2 = Vector2(0, 0), v3 = Vector3(0.0f), v4 = Vector4(0, 0, 0, 0);
                q = Quaternion::Identity(), m4 = Matrix4::Identity(), m3 = Matrix3::Identity();
                plane.normal = ray.origin = ray.direction = Vector3(0.0f), plane.d = 0;
                triangle.a = triangle.b = triangle.c = Vector3(0.0f);
                sphere = BoundingSphere(), box = BoundingBox(), mesh = BoundingMesh();
                cylinder = BoundingCylinder();
            }
            Serialize(s, v2), Serialize(s, v3), Serialize(s, v4), Serialize(s, q);
            Serialize(s, m3), Serialize(s, m4), Serialize(s, plane), Serialize(s, ray);
            Serialize(s, triangle), Serialize(s, sphere), Serialize(s, box);
            Serialize(s, cylinder), Serialize(s, mesh);
        });
    EXPECT_EQ(v2.x, v2Saved.x);
    EXPECT_EQ(v2.y, v2Saved.y);
    EXPECT_EQ(v3, v3Saved);
    EXPECT_EQ(v4.w, v4Saved.w);
    EXPECT_EQ(q, qSaved);
    EXPECT_EQ(m4, m4Saved);
    EXPECT_EQ(sphere.GetCenter(), Vector3(1, 2, 3));
    EXPECT_EQ(sphere.GetRadius(), 4.0f);
    EXPECT_EQ(box.GetHalfExtents(), Vector3(0.5f, 1, 2));
    EXPECT_EQ(cylinder.GetRadius(), 0.25f);
    EXPECT_EQ(cylinder.GetHalfHeight(), 2.0f);
    ASSERT_EQ(mesh.GetTriangles().size(), 2u);
    EXPECT_EQ(mesh.GetTriangles()[1].c, Vector3(0, 1, 1));
    EXPECT_EQ(m3(2, 1), m3Saved(2, 1));
    EXPECT_EQ(plane.normal, planeSaved.normal);
    EXPECT_EQ(plane.d, planeSaved.d);
    EXPECT_EQ(ray.direction, raySaved.direction);
    EXPECT_EQ(triangle.b, triangleSaved.b);
}

TEST(GeometrySerialization, EveryTypeComesBackBitForBitInBothByteOrders)
{
    EveryType<BinaryWriter>();
    EveryType<BinarySwapperWriter>();
}

TEST(GeometrySerialization, VolumesThroughTheirInterfaceAndAnUnknownKind)
{
    BoundingCylinder cylinder(Vector3(1, 0, 0), Vector3(0, 0, 1), 3, 1);
    BoundingVolume* saved = &cylinder;
    BoundingVolume* loaded = nullptr;
    RoundTrip<BinaryWriter>([&](Serializer& s)
                            { SerializeVolume(s, s.IsWriting() ? saved : loaded); });
    ASSERT_NE(loaded, nullptr);
    EXPECT_EQ(loaded->GetType(), BoundingVolumeType::Cylinder);
    EXPECT_TRUE(loaded->Contains(Vector3(1, 0, 2.9f)));
    EXPECT_FALSE(loaded->Contains(Vector3(1, 0, 3.1f)));
    delete loaded;

    BoundingInfinite infinite;
    saved = &infinite;
    loaded = nullptr;
    try
    {
        RoundTrip<BinaryWriter>(
            [&](Serializer& s)
            {
                u32 kind = 9;
                if (s.IsWriting())
                {
                    s.Serialize(kind);
                    return;
                }
                SerializeVolume(s, loaded);
            });
        ADD_FAILURE() << "an unknown kind was read";
    }
    catch (const Exception& e)
    {
        EXPECT_STREQ(e.GetReason(), "Unknown kind of bounding volume");
    }
    EXPECT_EQ(loaded, nullptr);
}

} // namespace
