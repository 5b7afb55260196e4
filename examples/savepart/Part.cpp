#include "Part.h"

#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <assimp/Importer.hpp>
#include <bit>
#include <cmath>
#include <filesystem>
#include <limits>
#include <stdexcept>

namespace {

constexpr std::array<unsigned char, 4> plain_grey{190, 190, 190, 255};

unsigned char toByte(float share) {
  return static_cast<unsigned char>(std::lround(std::clamp(share, 0.0F, 1.0F) * 255.0F));
}

std::array<unsigned char, 4> colourOf(const aiMaterial& material) {
  aiColor4D colour;
  if (material.Get(AI_MATKEY_COLOR_DIFFUSE, colour) != aiReturn_SUCCESS) return plain_grey;
  return {toByte(colour.r), toByte(colour.g), toByte(colour.b), toByte(colour.a)};
}

void appendMesh(const aiMesh& mesh, Part& part) {
  const auto first = static_cast<std::int32_t>(part.points.size() / 3);
  for (unsigned i = 0; i < mesh.mNumVertices; ++i) {
    const aiVector3D& point = mesh.mVertices[i];
    part.points.insert(part.points.end(), {point.x, point.y, point.z});
  }
  for (unsigned i = 0; i < mesh.mNumFaces; ++i) {
    const aiFace& face = mesh.mFaces[i];
    if (face.mNumIndices != 3) continue;  // lone points and lines
    for (unsigned corner = 0; corner < 3; ++corner) {
      part.triangles.push_back(first + static_cast<std::int32_t>(face.mIndices[corner]));
    }
  }
}

std::uint64_t mixWord(std::uint64_t hash, std::uint32_t word) {
  constexpr std::uint64_t prime = 0x100000001b3;
  for (int shift = 0; shift < 32; shift += 8) hash = (hash ^ (word >> shift & 0xFF)) * prime;
  return hash;
}

}  // namespace

std::array<float, 6> Part::boundingBox() const {
  constexpr float far = std::numeric_limits<float>::infinity();
  std::array<float, 6> box{far, far, far, -far, -far, -far};
  for (std::size_t i = 0; i < points.size(); ++i) {
    box[i % 3] = std::min(box[i % 3], points[i]);
    box[i % 3 + 3] = std::max(box[i % 3 + 3], points[i]);
  }
  return box;
}

std::uint64_t Part::checksum() const {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const float value : points) hash = mixWord(hash, std::bit_cast<std::uint32_t>(value));
  for (const std::int32_t index : triangles)
    hash = mixWord(hash, static_cast<std::uint32_t>(index));
  return hash;
}

Part readPart(const std::string& file_name) {
  Assimp::Importer importer;
  importer.SetPropertyInteger(AI_CONFIG_PP_RVC_FLAGS, aiComponent_NORMALS);
  const aiScene* scene = importer.ReadFile(
      file_name, aiProcess_Triangulate | aiProcess_RemoveComponent |
                     aiProcess_JoinIdenticalVertices | aiProcess_PreTransformVertices);
  if (!scene) throw std::runtime_error(importer.GetErrorString());

  Part part;
  part.name = std::filesystem::path(file_name).stem().string();
  part.colour = plain_grey;
  if (scene->mNumMaterials > 0) part.colour = colourOf(*scene->mMaterials[0]);
  for (unsigned i = 0; i < scene->mNumMeshes; ++i) appendMesh(*scene->mMeshes[i], part);
  if (part.triangles.empty()) throw std::runtime_error("there are no triangles in it");
  return part;
}
