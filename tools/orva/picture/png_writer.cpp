// SPDX-License-Identifier: Apache-2.0
#include <png.h>

#include <cstdint>
#include <string>
#include <vector>

#include "formats/output_file.h"
#include "picture/pictures.h"
#include "shared/failure.h"

namespace orva {

void WritePng(const Canvas& canvas, const std::filesystem::path& path) {
  const std::vector<std::uint8_t> pixels = canvas.Bytes();
  png_image image = {};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(canvas.width());
  image.height = static_cast<png_uint_32>(canvas.height());
  image.format = PNG_FORMAT_RGB;
  // Encoded in memory, so that OutputFile alone deals with the disk.
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
  std::vector<std::uint8_t> encoded(size);
  if (png_image_write_to_memory(&image, encoded.data(), &size, 0, pixels.data(), 0, nullptr) == 0) {
    throw Failure("cannot encode " + path.string() + ": " + image.message + ".");
  }
  OutputFile file(path);
  file.Write(encoded.data(), size);
  file.Commit();
}

}  // namespace orva
