#include "KorvaneCore/media/MediaType.hpp"
#include "KorvaneCore/media/Thumbnail.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneMacWidget/JPEGFile.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gtest/gtest.h>

namespace Korvane {
namespace {

using Testing::TemporaryFolder;
using Testing::writeFile;

/// A picture of 60 by 30 pixels, red on the left and blue on the right.
std::string redAndBlueJPEG() {
    GdkPixbuf* picture = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, 60, 30);
    gdk_pixbuf_fill(picture, 0xFF0000FF);
    GdkPixbuf* right = gdk_pixbuf_new_subpixbuf(picture, 30, 0, 30, 30);
    gdk_pixbuf_fill(right, 0x0000FFFF);
    gchar* bytes = nullptr;
    gsize size = 0;
    EXPECT_TRUE(gdk_pixbuf_save_to_buffer(picture, &bytes, &size, "jpeg", nullptr, "quality", "95", nullptr));
    std::string jpeg(bytes, size);
    g_free(bytes);
    g_object_unref(right);
    g_object_unref(picture);
    return jpeg;
}

/// The JPEG with an EXIF block that says how it must be turned.
std::string withOrientation(std::string jpeg, char orientation) {
    using namespace std::string_literals;
    const auto tiff = "MM\0*\0\0\0\x08\0\x01\x01\x12\0\x03\0\0\0\x01\0"s + orientation + "\0\0\0\0\0\0"s;
    const auto body = "Exif\0\0"s + tiff;
    const auto segment = "\xFF\xE1\0"s + static_cast<char>(body.size() + 2) + body;
    return jpeg.insert(2, segment);
}

TEST(Thumbnail, IsUprightBoundedAndAJPEG) {
    const TemporaryFolder folder;
    writeFile(folder / "turned.jpg", withOrientation(redAndBlueJPEG(), 6)); // turn a quarter clockwise
    for (const int maxSide : {512, 20}) {
        const auto bytes = makeThumbnail(folder / "turned.jpg", maxSide);
        EXPECT_TRUE(isJPEG(bytes));
        writeFile(folder / "thumb.jpg", bytes);
        GdkPixbuf* thumb = gdk_pixbuf_new_from_file((folder / "thumb.jpg").c_str(), nullptr);
        ASSERT_NE(thumb, nullptr);
        EXPECT_EQ(gdk_pixbuf_get_height(thumb), std::min(60, maxSide));
        EXPECT_EQ(gdk_pixbuf_get_width(thumb), std::min(30, maxSide / 2));
        const auto* top = gdk_pixbuf_read_pixels(thumb);
        EXPECT_GT(top[0], top[2]) << "red stands at the top after turning";
        g_object_unref(thumb);
    }
    writeFile(folder / "text.jpg", "no picture");
    EXPECT_THROW((void)makeThumbnail(folder / "text.jpg"), ThumbnailError);
    EXPECT_THROW((void)makeThumbnail(folder / "missing.jpg"), ThumbnailError);
}

TEST(MediaType, IsToldByContent) {
    const TemporaryFolder folder;
    const std::pair<std::string, const char*> contents[] = {
        {redAndBlueJPEG(), "image/jpeg"},
        {"%PDF-1.7\n", "application/pdf"},
        {"plain words\n", "text/plain"},
        {"", "application/octet-stream"},
    };
    for (const auto& [content, type] : contents) {
        writeFile(folder / "file", content);
        EXPECT_EQ(mediaType(folder / "file"), type);
    }
    EXPECT_THROW((void)mediaType(folder / "missing"), FileError);
}

TEST(JPEGFile, OnlyAWholeStreamCounts) {
    const auto jpeg = redAndBlueJPEG();
    EXPECT_TRUE(isJPEG(jpeg));
    EXPECT_TRUE(isJPEG(withOrientation(jpeg, 1)));
    EXPECT_TRUE(isJPEG(jpeg + "what cameras add"));
    for (std::size_t size = 0; size < jpeg.size(); ++size)
        EXPECT_FALSE(isJPEG(jpeg.substr(0, size))) << size;
    using namespace std::string_literals;
    for (const auto& bytes :
         {"\xFF\xD8\xFF\xD9"s, "\x89PNG\r\n\x1a\n"s, "\xFF\xD8\xFF\xC0\0\0\xFF\xD9"s,
          "\xFF\xD8\xFF\xDA\0\x02 no frame \xFF\xD9"s, "\xFF\xD8\xFF\xC0\xFF\xFF too long \xFF\xD9"s})
        EXPECT_FALSE(isJPEG(bytes));
}

} // namespace
} // namespace Korvane
