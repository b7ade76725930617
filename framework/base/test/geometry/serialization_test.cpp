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

#include <cstring>
#include <memory>
#include <string>
#include <type_traits>

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

// Every geometry type once: made with distinct values, or zeroed to read
// into.
struct Everything
{
    Vector2 v2{0, 0};
    Vector3 v3{0.0f};
    Vector4 v4{0, 0, 0, 0};
    Quaternion q = Quaternion::Identity();
    Matrix3 m3 = Matrix3::Identity();
    Matrix4 m4 = Matrix4::Identity();
    Plane plane{Vector3(0.0f), Vector3(0.0f)};
    Ray ray{Vector3(0.0f), Vector3(0.0f)};
    Triangle triangle{Vector3(0.0f), Vector3(0.0f), Vector3(0.0f)};
    BoundingSphere sphere;
    BoundingBox box;
    BoundingCylinder cylinder;
    BoundingMesh mesh;

    static Everything Made()
    {
        Everything e;
        e.v2 = Vector2(1.5f, -2);
        e.v3 = Vector3(0.1f, 2e-30f, -7);
        e.v4 = Vector4(1, 2, 3, 4);
        e.q = Quaternion::FromAxisAngle(Vector3(1, 2, 3).Normalized(), 0.7f);
        e.m4 = Matrix4::Compose(Vector3(1, 2, 3), e.q, Vector3(2, 2, 2));
        e.m3 = e.m4.Linear();
        e.plane = Plane::FromPoints(Vector3(0, 0, 0), Vector3(1, 0, 0), Vector3(0, 1, 1));
        e.ray = Ray(Vector3(1, 2, 3), Vector3(0, 0, -1));
        e.triangle = Triangle(Vector3(0, 0, 0), Vector3(1, 0, 0), Vector3(0, 1, 0));
        e.sphere = BoundingSphere(Vector3(1, 2, 3), 4);
        e.box = BoundingBox(Vector3(1, 1, 1), e.m3, Vector3(0.5f, 1, 2));
        e.cylinder = BoundingCylinder(Vector3(0, 1, 0), Vector3(0, 1, 0), 2, 0.25f);
        const Triangle pair[2] = {e.triangle,
                                  {Vector3(0, 0, 1), Vector3(1, 0, 1), Vector3(0, 1, 1)}};
        e.mesh = BoundingMesh(pair, 2);
        return e;
    }

    void Serialize(Serializer& s)
    {
        qel::Serialize(s, v2), qel::Serialize(s, v3), qel::Serialize(s, v4);
        qel::Serialize(s, q), qel::Serialize(s, m3), qel::Serialize(s, m4);
        qel::Serialize(s, plane), qel::Serialize(s, ray), qel::Serialize(s, triangle);
        qel::Serialize(s, sphere), qel::Serialize(s, box), qel::Serialize(s, cylinder);
        qel::Serialize(s, mesh);
    }
};

// The same bytes: -0 is not 0, and a NaN is the same NaN.
template <class T>
bool SameBits(const T& a, const T& b)
{
    static_assert(std::is_trivially_copyable_v<T>, "compared by its bytes");
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

template <class Writer>
void EveryType()
{
    Everything saved = Everything::Made(), loaded;
    RoundTrip<Writer>([&](Serializer& s) { (s.IsReading() ? loaded : saved).Serialize(s); });
    const struct
    {
        const char* type;
        bool same;
    } rows[] = {
        {"Vector2", SameBits(loaded.v2, saved.v2)},
        {"Vector3", SameBits(loaded.v3, saved.v3)},
        {"Vector4", SameBits(loaded.v4, saved.v4)},
        {"Quaternion", SameBits(loaded.q, saved.q)},
        {"Matrix3", SameBits(loaded.m3, saved.m3)},
        {"Matrix4", SameBits(loaded.m4, saved.m4)},
        {"Plane", SameBits(loaded.plane, saved.plane)},
        {"Ray", SameBits(loaded.ray, saved.ray)},
        {"Triangle", SameBits(loaded.triangle, saved.triangle)},
        {"BoundingSphere", loaded.sphere.GetCenter() == saved.sphere.GetCenter() &&
                               loaded.sphere.GetRadius() == saved.sphere.GetRadius()},
        {"BoundingBox", loaded.box.GetCenter() == saved.box.GetCenter() &&
                            loaded.box.GetAxes() == saved.box.GetAxes() &&
                            loaded.box.GetHalfExtents() == saved.box.GetHalfExtents()},
        {"BoundingCylinder",
         loaded.cylinder.GetCenter() == saved.cylinder.GetCenter() &&
             loaded.cylinder.GetAxis() == saved.cylinder.GetAxis() &&
             loaded.cylinder.GetHalfHeight() == saved.cylinder.GetHalfHeight() &&
             loaded.cylinder.GetRadius() == saved.cylinder.GetRadius()},
        {"BoundingMesh",
         loaded.mesh.GetTriangles().size() == 2 &&
             std::memcmp(loaded.mesh.GetTriangles().data(), saved.mesh.GetTriangles().data(),
                         2 * sizeof(Triangle)) == 0},
    };
    for (const auto& row : rows)
        EXPECT_TRUE(row.same) << row.type;
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
