// Film: blocks land on the right pixels, samples average, colours encode to
// sRGB, and the PNG written reads back as the same bytes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <vector>

#include <stb_image.h>

#include "film.h"

TEST(Film, BlocksAddToTheirPixelsAndClipAtTheEdge)
{
    render::Film film(10, 6);
    // An 8 x 8 block at (4, 2) reaches past the right and bottom edges.
    std::vector<float> r(64), g(64), b(64);
    for (int j = 0; j < 8; ++j) {
        for (int i = 0; i < 8; ++i) {
            r[j * 8 + i] = static_cast<float>(100 * j + i);
            g[j * 8 + i] = 1.0f;
            b[j * 8 + i] = -1.0f;
        }
    }
    film.addBlock(4, 2, 8, 8, 8, r.data(), g.data(), b.data());
    film.addBlock(4, 2, 8, 8, 8, r.data(), g.data(), b.data());
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 10; ++x) {
            const bool inside = x >= 4 && y >= 2;
            EXPECT_EQ(film.value(x, y, 0, 2), inside ? 100.0f * (y - 2) + (x - 4) : 0.0f);
            EXPECT_EQ(film.value(x, y, 1, 1), inside ? 2.0f : 0.0f);
            EXPECT_EQ(film.value(x, y, 2, 2), inside ? -1.0f : 0.0f);
        }
    }
}

TEST(Film, PngRoundTrip)
{
    render::Film film(5, 3);
    std::vector<float> r(15), g(15), b(15);
    for (int i = 0; i < 15; ++i) {
        r[i] = i / 14.0f;
        g[i] = 1.0f - i / 14.0f;
        b[i] = 0.25f;
    }
    film.addBlock(0, 0, 5, 3, 5, r.data(), g.data(), b.data());
    const std::vector<uint8_t> rgb = film.toRgb8(1, 1.0f);
    ASSERT_EQ(rgb.size(), 45u);
    EXPECT_EQ(rgb[0], 0);
    EXPECT_EQ(rgb[1], 255);
    EXPECT_EQ(rgb[3 * 14], 255);

    const auto path = std::filesystem::temp_directory_path() / "vekr_render_film_test.png";
    std::string error;
    ASSERT_TRUE(render::writePng(path.string(), 5, 3, rgb, error)) << error;
    int w = 0, h = 0, n = 0;
    unsigned char* back = stbi_load(path.string().c_str(), &w, &h, &n, 3);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(w, 5);
    EXPECT_EQ(h, 3);
    EXPECT_EQ(std::vector<uint8_t>(back, back + 45), rgb);
    stbi_image_free(back);
    std::filesystem::remove(path);

    EXPECT_FALSE(render::writePng("/nonexistent-dir/x.png", 5, 3, rgb, error));
    EXPECT_NE(error.find("/nonexistent-dir/x.png"), std::string::npos);
}
