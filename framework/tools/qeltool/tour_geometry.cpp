// Tour section: geometry. A small scene of bounding volumes, a few rays cast
// through it, and which volumes touch which.
#include "tour.h"

#include <qel/boundingbox.h>
#include <qel/boundingcylinder.h>
#include <qel/boundinginfinite.h>
#include <qel/boundingmesh.h>
#include <qel/boundingsphere.h>
#include <qel/quaternion.h>

#include <cstdio>
#include <vector>

namespace qeltool
{

namespace
{

struct Named
{
    const char* name;
    const qel::BoundingVolume* volume;
};

// A square pyramid standing on the floor at (x, 0, z).
std::vector<qel::Triangle> Pyramid(float x, float z, float half, float height)
{
    const qel::Vector3 apex(x, height, z);
    const qel::Vector3 corners[4] = {{x - half, 0, z - half},
                                     {x + half, 0, z - half},
                                     {x + half, 0, z + half},
                                     {x - half, 0, z + half}};
    std::vector<qel::Triangle> triangles;
    for (int i = 0; i < 4; ++i)
        triangles.emplace_back(corners[i], corners[(i + 1) % 4], apex);
    triangles.emplace_back(corners[0], corners[2], corners[1]);
    triangles.emplace_back(corners[0], corners[3], corners[2]);
    return triangles;
}

} // namespace

void TourGeometry(const TourContext&)
{
    Banner("geometry");
    const qel::BoundingBox floor(qel::Vector3(-10, -0.5f, -10), qel::Vector3(10, 0, 10));
    const qel::BoundingSphere ball(qel::Vector3(0, 1, 0), 1.0f);
    const qel::BoundingCylinder pillar(qel::Vector3(4, 0, 0), qel::Vector3(4, 5, 0), 0.5f);
    const std::vector<qel::Triangle> triangles = Pyramid(-4, 0, 1.5f, 3);
    const qel::BoundingMesh pyramid(triangles.data(), unsigned(triangles.size()));
    // A crate turned 30 degrees about y, resting on the floor.
    qel::BoundingBox crate(qel::Vector3(0.0f), qel::Matrix3::Identity(), qel::Vector3(1, 1, 1));
    crate.Transform(qel::Matrix4::Compose(
        qel::Vector3(0, 1, 4), qel::Quaternion::FromAxisAngle(qel::Vector3(0, 1, 0), 0.5236f),
        qel::Vector3(1.0f)));
    const qel::BoundingInfinite world;
    const Named scene[] = {{"floor", &floor},     {"ball", &ball},   {"pillar", &pillar},
                           {"pyramid", &pyramid}, {"crate", &crate}, {"world", &world}};
    std::printf("scene: floor box, ball sphere r=1 at (0,1,0), pillar cylinder r=0.5 at x=4,\n"
                "       pyramid mesh of %u triangles at x=-4, crate box turned 30 degrees at z=4,\n"
                "       and the infinite world\n",
                unsigned(pyramid.GetTriangles().size()));

    struct Shot
    {
        const char* what;
        qel::Ray ray;
    };
    const Shot shots[] = {
        {"along x at height 1", {{-10, 1, 0}, {1, 0, 0}}},
        {"down onto the pyramid", {{-4, 10, 0.2f}, {0, -1, 0}}},
        {"from inside the ball", {{0, 1, 0}, {0, 0, 1}}},
        {"over everything", {{-10, 6, 0}, {1, 0, 0}}},
        {"at the crate's corner", {{3, 1, 4}, {-1, 0, 0}}},
    };
    for (const Shot& shot : shots)
    {
        std::printf("ray %-22s:", shot.what);
        for (const Named& n : scene)
        {
            float t;
            if (n.volume->IntersectRay(shot.ray, t))
                std::printf(" %s@%.2f", n.name, t);
        }
        std::printf("\n");
    }

    std::printf("touching pairs:");
    for (size_t i = 0; i < sizeof(scene) / sizeof(scene[0]); ++i)
        for (size_t j = i + 1; j < sizeof(scene) / sizeof(scene[0]); ++j)
            if (scene[i].volume->Intersects(*scene[j].volume))
                std::printf(" %s-%s", scene[i].name, scene[j].name);
    std::printf("\n");
    const qel::Vector3 probe(2, 1, 0);
    std::printf("distances from (2, 1, 0): ball %.3f, pillar %.3f, pyramid %.3f, crate %.3f\n",
                ball.Distance(probe), pillar.Distance(probe), pyramid.Distance(probe),
                crate.Distance(probe));
}

} // namespace qeltool
