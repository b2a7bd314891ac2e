#include "TestImages.h"

#include "correction/ReferenceFile.h"
#include "tools/ImageFxdFile.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>

using boost::property_tree::ptree;
using orvane::test::LogCapture;
using orvane::test::MakeImage;
using orvane::test::Pixels;
using orvane::test::ScratchDirectory;

namespace {

std::string ReadBytes(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteBytes(const std::string& name, const std::string& bytes) {
    std::ofstream(name, std::ios::binary | std::ios::trunc) << bytes;
}

std::int32_t Int32At(const std::string& bytes, size_t offset) {
    std::uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i) value |= std::uint32_t(std::uint8_t(bytes[offset + i])) << (8 * i);
    return std::int32_t(value);
}

void PutInt32At(std::string& bytes, size_t offset, std::int32_t value) {
    for (size_t i = 0; i < 4; ++i) bytes[offset + i] = char((std::uint32_t(value) >> (8 * i)) & 0xFF);
}

// The ImageFormatException text of reading `name`, or "" when it reads.
std::string FormatFailure(const std::string& name) {
    try {
        ImageFxdFileIn file(name);
        return "";
    } catch (const ImageFormatException& e) {
        return e.what();
    }
}

// Two frames of 3x2 with properties on frame 0: 128 + block + 2 x 6 x 2 bytes.
void WriteSmallFile(const std::string& name) {
    ImageFxdFileOut file(name);
    ptree properties;
    properties.put("image.time", 100);
    file.SetProperties(properties, 0);
    file.Open(3, 2, 1, true);
    const std::vector<unsigned short> pixels = {1, 2, 3, 4, 5, 6};
    file.WriteFrame(pixels.data(), 1);
    file.WriteFrame(pixels.data(), 0);
    file.Close();
}

template <typename T>
std::vector<T> Extremes();
template <>
std::vector<float> Extremes() {
    return {-0.0f, std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::infinity(),
            std::numeric_limits<float>::quiet_NaN(), -3.4e38f, 1.0f / 3.0f};
}
template <>
std::vector<unsigned short> Extremes() {
    return {0, 1, 255, 256, 32768, 65535};
}
template <>
std::vector<unsigned char> Extremes() {
    return {0, 1, 127, 128, 254, 255};
}

// Loads `path` into a width x height offset store holding known content, which the
// failed load must leave untouched; gives the ReferenceException's text.
std::string LoadFailure(int width, int height, const std::string& path) {
    ReferenceOffsetSimple store(width, height, path);
    const ImagePtr<unsigned short> live = store.GetOffset();
    for (int i = 0; i < live->GetPixelCount(); ++i) live->GetData()[i] = static_cast<unsigned short>(100 + i);
    live->SetProperty("image.time", 7);
    store.SetValid(true);
    const std::vector<unsigned short> pixels = Pixels(live);
    const ptree properties = live->GetProperties();
    std::string message;
    try {
        store.Load();
    } catch (const ReferenceException& e) {
        message = e.what();
    }
    EXPECT_EQ(live, store.GetOffset());
    EXPECT_EQ(pixels, Pixels(live));
    EXPECT_TRUE(properties == live->GetProperties());
    EXPECT_TRUE(store.IsValid());
    return message;
}

template <typename T>
class ImageFxdRoundTrip : public ::testing::Test {};
using PixelTypes = ::testing::Types<float, unsigned short, unsigned char>;
TYPED_TEST_SUITE(ImageFxdRoundTrip, PixelTypes);

}  // namespace

TYPED_TEST(ImageFxdRoundTrip, FramesAndPropertiesComeBackBitExact) {
    ScratchDirectory directory;
    const std::vector<TypeParam> values = Extremes<TypeParam>();
    std::vector<ImagePtr<TypeParam>> frames;
    for (int f = 0; f < 3; ++f) {
        frames.push_back(MakeImage<TypeParam>(3, 2));
        std::rotate_copy(values.begin(), values.begin() + f, values.end(), frames.back()->GetData());
    }
    ptree awkward("root value");
    awkward.put("image.time", 1234);
    awkward.add("info.note", "two\nlines, \"quoted\" {braces}; 5:colon");
    awkward.add("info.note", "a duplicate key");
    awkward.push_back(ptree::value_type("", ptree("an empty key")));
    awkward.put("image", "value on an inner node");
    ImageFxdFileOut out("roundtrip.fxd");
    out.SetProperties(awkward, 0);
    out.SetProperties(frames[2]->GetProperties(), 2);
    out.Open(3, 2, orvane::detail::FxdPixelType<TypeParam>::code, true);
    for (int f = 2; f >= 0; --f) out.WriteFrame(frames[f]->GetData(), f);
    out.Close();

    ImageFxdFileIn in("roundtrip.fxd");
    EXPECT_EQ(3, in.GetWidth());
    EXPECT_EQ(2, in.GetHeight());
    EXPECT_EQ(orvane::detail::FxdPixelType<TypeParam>::code, in.GetPixelType());
    ASSERT_EQ(3, in.GetFrameCount());
    for (int f = 0; f < 3; ++f) {
        std::vector<TypeParam> read(6);
        in.ReadFrame(read.data(), f);
        EXPECT_EQ(0, std::memcmp(frames[f]->GetData(), read.data(), sizeof(TypeParam) * 6)) << f;
    }
    EXPECT_TRUE(in.GetProperties(0) == awkward);
    EXPECT_TRUE(in.GetProperties(1).empty());
}

TEST(ImageFxdFile, LayoutIsTheDocumentedOne) {
    ScratchDirectory directory;
    WriteSmallFile("small.fxd");
    const std::string bytes = ReadBytes("small.fxd");
    const std::string block = "frame 0 0:\n1 5:image 0:\n2 4:time 3:100\n";
    ASSERT_EQ(128 + block.size() + 2 * 6 * 2, bytes.size());
    EXPECT_EQ("OFXD", bytes.substr(0, 4));
    const std::vector<std::int32_t> fields = {1, 3, 2, 1, 2, std::int32_t(block.size()), 1};
    for (size_t i = 0; i < fields.size(); ++i) EXPECT_EQ(fields[i], Int32At(bytes, 4 + 4 * i)) << i;
    EXPECT_EQ(std::string(96, '\0'), bytes.substr(32, 96));
    EXPECT_EQ(block, bytes.substr(128, block.size()));
    EXPECT_EQ(std::string("\x06\x00", 2), bytes.substr(128 + block.size() + 10, 2));  // pixel 5: 6
}

TEST(ImageFxdFile, DamagedFilesAreRefusedWithTheReason) {
    ScratchDirectory directory;
    WriteSmallFile("good.fxd");
    const std::string good = ReadBytes("good.fxd");
    const auto damaged = [&](std::string bytes) {
        WriteBytes("bad.fxd", bytes);
        return FormatFailure("bad.fxd");
    };
    EXPECT_EQ("", FormatFailure("good.fxd"));
    EXPECT_NE(std::string::npos, FormatFailure("missing.fxd").find("'missing.fxd' cannot be opened"));
    EXPECT_NE(std::string::npos, damaged(good.substr(0, good.size() - 1)).find("is truncated"));
    EXPECT_NE(std::string::npos, damaged(good.substr(0, 100)).find("is truncated: 100 bytes"));
    EXPECT_NE(std::string::npos, damaged(good + "x").find("1 bytes after its last frame"));
    EXPECT_NE(std::string::npos, damaged("XFXD" + good.substr(4)).find("wrong magic"));

    std::string bytes = good;
    PutInt32At(bytes, 8, 4);  // width
    EXPECT_NE(std::string::npos, damaged(bytes).find("announces 2 frames of 4x2"));
    bytes = good;
    PutInt32At(bytes, 12, -2);  // height
    EXPECT_NE(std::string::npos, damaged(bytes).find("wrong size 3x-2"));
    bytes = good;
    PutInt32At(bytes, 16, 3);
    EXPECT_NE(std::string::npos, damaged(bytes).find("unknown pixel type code 3"));
    bytes = good;
    bytes[128 + 13] = '9';  // "5:image" becomes "9:image", running into the next line
    EXPECT_NE(std::string::npos, damaged(bytes).find("unreadable property block"));
}

TEST(ImageFxdFile, FrameOfAnotherTypeOrNumberIsRefused) {
    ScratchDirectory directory;
    WriteSmallFile("small.fxd");
    ImageFxdFileIn file("small.fxd");
    std::vector<float> floats(6);
    EXPECT_THROW(file.ReadFrame(floats.data(), 0), ImageFormatException);
    EXPECT_THROW(file.ReadImage<unsigned short>(2), ImageFormatException);
    EXPECT_EQ(std::vector<unsigned short>({1, 2, 3, 4, 5, 6}), Pixels(file.ReadImage<unsigned short>(1)));
}

TEST(ImageFxdFile, WriteFrameFailureIsLoggedWithTheWritersHeaderAsFile) {
    ScratchDirectory directory;
    LogCapture log;
    ImageFxdFileOut file("never-opened.fxd");
    const unsigned short pixel = 1;
    try {
        file.WriteFrame(&pixel, 0);
        FAIL() << "no exception";
    } catch (const ImageFileException& e) {
        const std::string text = e.what();
        const std::string prefix = "tools/image/ImageFxdFile(";
        const std::string suffix = "): Impossible to write image 'never-opened.fxd'";
        ASSERT_GT(text.size(), prefix.size() + suffix.size());
        EXPECT_EQ(prefix, text.substr(0, prefix.size()));
        EXPECT_EQ(suffix, text.substr(text.size() - suffix.size()));
        EXPECT_GT(std::stoi(text.substr(prefix.size())), 0);
        EXPECT_EQ(std::vector<std::string>({"E " + text + "\n"}), log.lines);
    }
}

TEST(ReferenceFile, OffsetStoreIsSavedAndLoadedIntoItsLiveImage) {
    ScratchDirectory directory;
    ReferenceOffsetSimple saved(3, 2, "offset.fxd");
    *saved.GetOffset()->GetBuffer() = *MakeImage<unsigned short>(3, 2, {9, 8, 7, 6, 5, 65535})->GetBuffer();
    saved.GetOffset()->SetProperty("image.time", 42);
    saved.SetValid(true);
    saved.Save();

    ReferenceOffsetSimple loaded(3, 2, "offset.fxd");
    const ImagePtr<unsigned short> live = loaded.GetOffset();
    loaded.Load();
    EXPECT_EQ(live, loaded.GetOffset());
    EXPECT_EQ(Pixels(saved.GetOffset()), Pixels(live));
    EXPECT_TRUE(live->GetProperties() == saved.GetOffset()->GetProperties());
    EXPECT_TRUE(loaded.IsValid());
    EXPECT_EQ(std::vector<std::string>({"offset.fxd"}), directory.Entries());
}

TEST(ReferenceFile, InMemoryStoreNeitherWritesNorReads) {
    ScratchDirectory directory;
    ReferenceOffsetSimple store(2, 1);
    store.GetOffset()->GetData()[0] = 5;
    store.Save();
    store.Load();
    EXPECT_TRUE(directory.Entries().empty());
    EXPECT_EQ(std::vector<unsigned short>({5, 0}), Pixels(store.GetOffset()));
}

TEST(ReferenceFile, FailedLoadLeavesTheStoreAsItWas) {
    ScratchDirectory directory;
    ReferenceOffsetSimple saved(3, 2, "wide.fxd");
    saved.Save();
    const std::string bytes = ReadBytes("wide.fxd");
    WriteBytes("cut.fxd", bytes.substr(0, bytes.size() - 2));
    orvane::detail::WriteReferenceFile<unsigned short>(Reference("otherkind.fxd"), "ReferenceOther",
                                                       {saved.GetOffset()}, {});

    EXPECT_NE(std::string::npos,
              LoadFailure(3, 2, "cut.fxd")
                  .find("ReferenceOffsetSimple: cannot load 'cut.fxd': ImageFxdFileIn: 'cut.fxd' is truncated"));
    EXPECT_NE(std::string::npos, LoadFailure(2, 3, "wide.fxd").find("are 3x2, the store's are 2x3"));
    EXPECT_NE(std::string::npos, LoadFailure(3, 2, "otherkind.fxd").find("file of a ReferenceOther"));
    EXPECT_NE(std::string::npos, LoadFailure(3, 2, "missing.fxd").find("cannot be opened"));
}

TEST(ReferenceFile, FailedSaveKeepsTheEarlierFile) {
    ScratchDirectory directory;
    ReferenceOffsetSimple store(2, 2, "offset.fxd");
    store.Save();
    const std::string before = ReadBytes("offset.fxd");
    std::filesystem::create_directory("offset.fxd.part");  // the file cannot be written
    store.SetValid(true);
    EXPECT_THROW(store.Save(), ReferenceException);
    EXPECT_EQ(before, ReadBytes("offset.fxd"));
}

TEST(ReferenceFile, StoreStateWithoutImagesComesBack) {
    ScratchDirectory directory;
    Reference store("state.fxd");
    store.SetValid(true);
    ptree settings;
    settings.put("grid.deltaTime", 500);
    orvane::detail::WriteReferenceFile<unsigned char>(store, "ReferenceState", {}, settings);

    Reference loaded("state.fxd");
    auto content = orvane::detail::ReadReferenceFile<unsigned char>(loaded, "ReferenceState", 0, 0, -1);
    EXPECT_TRUE(content.images.empty());
    EXPECT_TRUE(content.settings == settings);
    EXPECT_FALSE(loaded.IsValid());
    orvane::detail::CommitReferenceFile(loaded, content, {});
    EXPECT_TRUE(loaded.IsValid());
}
