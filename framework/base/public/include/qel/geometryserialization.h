// The serialization routines of the geometry types: one routine per type,
// for both directions, so that geometry is saved, loaded and described like
// any other data.
//
// Vectors, quaternions and matrices are their floats in order (x, y, z, w;
// matrices column by column) as one array; planes, rays and triangles are
// their named parts. A volume is a block of its named parts; a mesh writes
// its triangle count, then the triangles. SerializeVolume handles a volume
// through its interface: its kind as a u32 ("Kind": 0 sphere, 1 box,
// 2 cylinder, 3 mesh, 4 infinite) and then the volume; reading makes a new
// volume of that kind (the caller owns it) and throws qel::Exception
// "Unknown kind of bounding volume" for a kind it does not know.
#pragma once

#include <qel/boundingbox.h>
#include <qel/boundingcylinder.h>
#include <qel/boundinginfinite.h>
#include <qel/boundingmesh.h>
#include <qel/boundingsphere.h>
#include <qel/export.h>
#include <qel/matrix3.h>
#include <qel/matrix4.h>
#include <qel/plane.h>
#include <qel/quaternion.h>
#include <qel/ray.h>
#include <qel/triangle.h>
#include <qel/vector2.h>
#include <qel/vector3.h>
#include <qel/vector4.h>

namespace qel
{

class Serializer;

QEL_API void Serialize(Serializer& s, Vector2& v);
QEL_API void Serialize(Serializer& s, Vector3& v);
QEL_API void Serialize(Serializer& s, Vector4& v);
QEL_API void Serialize(Serializer& s, Quaternion& q);
QEL_API void Serialize(Serializer& s, Matrix3& m);
QEL_API void Serialize(Serializer& s, Matrix4& m);
QEL_API void Serialize(Serializer& s, Plane& plane);
QEL_API void Serialize(Serializer& s, Ray& ray);
QEL_API void Serialize(Serializer& s, Triangle& triangle);
QEL_API void Serialize(Serializer& s, BoundingSphere& sphere);
QEL_API void Serialize(Serializer& s, BoundingBox& box);
QEL_API void Serialize(Serializer& s, BoundingCylinder& cylinder);
QEL_API void Serialize(Serializer& s, BoundingMesh& mesh);
QEL_API void Serialize(Serializer& s, BoundingInfinite& infinite);

// Writes `volume` (not null) with its kind, or reads a new volume into it.
QEL_API void SerializeVolume(Serializer& s, BoundingVolume*& volume);

} // namespace qel
