#include "film.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cctype>
#include <cstdio>
#include <cstring>

#include <unistd.h>

#include <stb_image_write.h>

namespace render {

Film::Film(int width, int height)
    : width_(width), height_(height), rgb_(static_cast<size_t>(width) * height * 3, 0.0f)
{
}

void Film::addBlock(int x0, int y0, int blockWidth, int blockHeight, int stride, const float* r,
                    const float* g, const float* b)
{
    const int w = std::min(blockWidth, width_ - x0);
    const int h = std::min(blockHeight, height_ - y0);
    for (int j = 0; j < h; ++j) {
        float* dst = &rgb_[(static_cast<size_t>(y0 + j) * width_ + x0) * 3];
        const size_t row = static_cast<size_t>(j) * stride;
        for (int i = 0; i < w; ++i) {
            dst[3 * i] += r[row + i];
            dst[3 * i + 1] += g[row + i];
            dst[3 * i + 2] += b[row + i];
        }
    }
}

float Film::value(int x, int y, int c, int samples) const
{
    return rgb_[(static_cast<size_t>(y) * width_ + x) * 3 + c] / static_cast<float>(samples);
}

uint8_t encodeSrgb(float v)
{
    if (!(v > 0.0f)) return 0;  // also NaN
    if (v >= 1.0f) return 255;
    const float s = v <= 0.0031308f ? 12.92f * v : 1.055f * std::pow(v, 1.0f / 2.4f) - 0.055f;
    return static_cast<uint8_t>(std::lround(s * 255.0f));
}

std::vector<uint8_t> Film::toRgb8(int samples, float exposure) const
{
    std::vector<uint8_t> out(rgb_.size());
    const float scale = exposure / static_cast<float>(samples);
    for (size_t i = 0; i < rgb_.size(); ++i) out[i] = encodeSrgb(rgb_[i] * scale);
    return out;
}

PictureFormat pictureFormat(const std::string& path)
{
    const size_t dot = path.find_last_of("./");
    if (dot == std::string::npos || path[dot] != '.') return PictureFormat::Unknown;
    std::string ext = path.substr(dot + 1);
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (ext == "png") return PictureFormat::Png;
    if (ext == "jpg" || ext == "jpeg") return PictureFormat::Jpeg;
    return PictureFormat::Unknown;
}

bool outputWritable(const std::string& path, std::string& error)
{
    const bool existed = ::access(path.c_str(), F_OK) == 0;
    std::FILE* f = std::fopen(path.c_str(), "ab");
    if (!f) {
        error = "cannot write '" + path + "': " + std::strerror(errno);
        return false;
    }
    std::fclose(f);
    if (!existed) std::remove(path.c_str());
    return true;
}

bool writePicture(const std::string& path, int width, int height, const std::vector<uint8_t>& rgb,
                  std::string& error)
{
    errno = 0;
    const bool ok = pictureFormat(path) == PictureFormat::Jpeg
                        ? stbi_write_jpg(path.c_str(), width, height, 3, rgb.data(), 90)
                        : stbi_write_png(path.c_str(), width, height, 3, rgb.data(), width * 3);
    if (!ok) {
        error = "cannot write '" + path + "'";
        if (errno != 0) error += std::string(": ") + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace render
