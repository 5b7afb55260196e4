#pragma once
// A triangulated 3D part in memory, and how it is read from a model file.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

struct Part {
  std::string name;                       // UTF-8
  std::array<unsigned char, 4> colour{};  // red, green, blue, alpha
  std::vector<float> points;              // x, y, z of each point, in the model's unit
  std::vector<std::int32_t> triangles;    // three indices into the points for each triangle

  // Lowest x, y, z, then highest x, y, z.
  std::array<float, 6> boundingBox() const;
  // FNV-1a of 64 bits over points and triangles, as the little-endian bytes that a file gets
  // (http://www.isthe.com/chongo/tech/comp/fnv/).
  std::uint64_t checksum() const;
};

// Reads any format that Assimp knows; all meshes of the file become one part. Throws
// std::runtime_error with the reason, also for a file without triangles.
Part readPart(const std::string& file_name);
