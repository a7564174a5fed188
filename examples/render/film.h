// The picture being made: linear colour per pixel, summed over samples, and
// its conversion to 8-bit sRGB and to a PNG or JPEG file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace render {

class Film {
public:
    Film(int width, int height);

    int width() const { return width_; }
    int height() const { return height_; }

    // Adds one sample of a block of colours: planes r, g, b of rows of
    // `stride` values; the block's value (i, j) belongs to pixel
    // (x0 + i, y0 + j).  Values outside the picture are left out.  Blocks
    // that do not overlap may be added from different threads at once.
    void addBlock(int x0, int y0, int blockWidth, int blockHeight, int stride, const float* r,
                  const float* g, const float* b);

    // Linear colour of pixel (x, y), channel c, averaged over `samples`.
    float value(int x, int y, int c, int samples) const;

    // 8-bit sRGB, three bytes per pixel, row after row: each average times
    // `exposure`, clamped to 0..1 and gamma-encoded.
    std::vector<uint8_t> toRgb8(int samples, float exposure) const;

private:
    int width_, height_;
    std::vector<float> rgb_;
};

// sRGB encoding of a linear value in 0..1 (values outside are clamped).
uint8_t encodeSrgb(float linear);

// The picture type a file name asks for, from its extension (any case).
enum class PictureFormat { Png, Jpeg, Unknown };
PictureFormat pictureFormat(const std::string& path);

// True when `path` can be opened for writing; checked before rendering, so
// a bad output path fails at once.  Leaves no new file behind.
bool outputWritable(const std::string& path, std::string& error);

// Writes 8-bit RGB as PNG or JPEG (quality 90) by the file's extension;
// false with a message on failure.
bool writePicture(const std::string& path, int width, int height, const std::vector<uint8_t>& rgb,
                  std::string& error);

}  // namespace render
