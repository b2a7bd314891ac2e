#include "TestImages.h"

#include "correction/ReferenceFile.h"
#include "tools/ImageFxdFile.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <regex>
#include <type_traits>

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

// `bytes` with the header field at `offset` set to `value`, little-endian.
std::string WithInt32At(std::string bytes, size_t offset, std::int32_t value) {
    for (size_t i = 0; i < 4; ++i) bytes[offset + i] = char((std::uint32_t(value) >> (8 * i)) & 0xFF);
    return bytes;
}

// The ImageFormatException text of `call`, or "" when it does not throw.
template <typename Call>
std::string FormatFailure(Call call) {
    try {
        call();
    } catch (const ImageFormatException& e) {
        return e.what();
    }
    return "";
}
std::string OpenFailure(const std::string& name) {
    return FormatFailure([&] { ImageFxdFileIn file(name); });
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

// Values whose bits a careless copy would change: signed zero, a denormal, NaN, the
// top bit and both bytes of a wider pixel.
template <typename T>
std::vector<T> Extremes() {
    if constexpr (std::is_same_v<T, float>)
        return {-0.0f, std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::infinity(),
                std::numeric_limits<float>::quiet_NaN(), -3.4e38f, 1.0f / 3.0f};
    else
        return {0, 1, 127, 128, T(-2), T(-1)};
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
    ASSERT_EQ((std::vector<int>{3, 2, orvane::detail::FxdPixelType<TypeParam>::code, 3}),
              (std::vector<int>{in.GetWidth(), in.GetHeight(), in.GetPixelType(), in.GetFrameCount()}));
    for (int f = 0; f < 3; ++f) {
        std::vector<TypeParam> read(6);
        in.ReadFrame(read.data(), f);
        EXPECT_EQ(0, std::memcmp(frames[f]->GetData(), read.data(), sizeof(TypeParam) * 6)) << f;
    }
    EXPECT_TRUE(in.GetProperties(0) == awkward);
    EXPECT_TRUE(in.GetProperties(1).empty());
}

TEST(ImageFxdFile, LayoutIsTheDocumentedOneAndDamagedCopiesOrWrongFramesAreRefusedWithTheReason) {
    ScratchDirectory directory;
    WriteSmallFile("good.fxd");
    const std::string good = ReadBytes("good.fxd");
    const std::string block = "frame 0 0:\n1 5:image 0:\n2 4:time 3:100\n";
    ASSERT_EQ(128 + block.size() + 2 * 6 * 2, good.size());
    std::string header = "OFXD" + std::string(124, '\0');  // then 96 reserved zero bytes
    const std::vector<std::int32_t> fields = {1, 3, 2, 1, 2, std::int32_t(block.size()), 1};
    for (size_t i = 0; i < fields.size(); ++i) header = WithInt32At(header, 4 + 4 * i, fields[i]);
    EXPECT_EQ(header, good.substr(0, 128));
    EXPECT_EQ(block, good.substr(128, block.size()));
    EXPECT_EQ(std::string("\x06\x00", 2), good.substr(128 + block.size() + 10, 2));  // pixel 5: 6

    EXPECT_EQ("", OpenFailure("good.fxd"));
    EXPECT_EQ("ImageFxdFileIn: 'missing.fxd' cannot be opened", OpenFailure("missing.fxd"));
    std::string badBlock = good;
    badBlock[128 + 13] = '9';  // "5:image" becomes "9:image", running into the next line
    const struct {
        std::string bytes, reason;
    } damaged[] = {
        {good.substr(0, good.size() - 1), "is truncated: 190 bytes, but its header announces 2 frames of 3x2 after "},
        {good.substr(0, 100), "is truncated: 100 bytes, less than the 128-byte header"},
        {good + "x", "has 1 bytes after its last frame (its header announces 2 frames of 3x2"},
        {"XFXD" + good.substr(4), "is not an .fxd file (wrong magic)"},
        {WithInt32At(good, 4, 2), "has the unsupported version 2"},
        {WithInt32At(good, 8, 4), "is truncated: 191 bytes, but its header announces 2 frames of 4x2"},
        {WithInt32At(good, 12, -2), "has the wrong size 3x-2: negative"},
        {WithInt32At(WithInt32At(good, 8, 65536), 12, 32768), "has the wrong size 65536x32768: more pixels than"},
        {WithInt32At(good, 16, 3), "has the unknown pixel type code 3"},
        {WithInt32At(good, 20, -1), "has a negative frame count -1"},
        {WithInt32At(good, 24, -1), "has a negative extra header size -1"},
        {WithInt32At(good, 28, 2), "has the invalid properties flag 2"},
        {WithInt32At(good, 28, 0), "has an extra header of 39 bytes but no properties"},
        {badBlock, "has an unreadable property block: "},
    };
    for (const auto& d : damaged) {
        WriteBytes("bad.fxd", d.bytes);
        const std::string text = OpenFailure("bad.fxd");
        EXPECT_EQ(0u, text.find("ImageFxdFileIn: 'bad.fxd' " + d.reason)) << text;
    }

    ImageFxdFileIn file("good.fxd");
    std::vector<float> floats(6);
    EXPECT_EQ("ImageFxdFileIn: 'good.fxd' holds pixel type code 1, not 0",
              FormatFailure([&] { file.ReadFrame(floats.data(), 0); }));
    EXPECT_EQ("ImageFxdFileIn: 'good.fxd' has 2 frames, no frame 2",
              FormatFailure([&] { file.ReadImage<unsigned short>(2); }));
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
        EXPECT_TRUE(std::regex_match(e.what(), std::regex(R"(tools/image/ImageFxdFile\([1-9][0-9]*\): )"
                                                          R"(Impossible to write image 'never-opened\.fxd')")))
            << e.what();
        EXPECT_EQ(std::vector<std::string>({"E " + std::string(e.what()) + "\n"}), log.lines);
    }
}

TEST(ReferenceFile, OffsetStoreIsSavedAndLoadedIntoItsLiveImageAnInMemoryOneNeither) {
    ScratchDirectory directory;
    ReferenceOffsetSimple saved(3, 2, "offset.fxd"), loaded(3, 2, "offset.fxd"), inMemory(2, 1);
    *saved.GetOffset()->GetBuffer() = *MakeImage<unsigned short>(3, 2, {9, 8, 7, 6, 5, 65535})->GetBuffer();
    saved.GetOffset()->SetProperty("image.time", 42);
    saved.SetValid(true);
    saved.Save();
    const ImagePtr<unsigned short> live = loaded.GetOffset();
    loaded.Load();
    EXPECT_EQ(live, loaded.GetOffset());
    EXPECT_EQ(Pixels(saved.GetOffset()), Pixels(live));
    EXPECT_TRUE(live->GetProperties() == saved.GetOffset()->GetProperties());
    EXPECT_TRUE(loaded.IsValid());

    inMemory.GetOffset()->GetData()[0] = 5;
    inMemory.Save();
    inMemory.Load();
    EXPECT_EQ(std::vector<std::string>({"offset.fxd"}), directory.Entries());
    EXPECT_EQ(std::vector<unsigned short>({5, 0}), Pixels(inMemory.GetOffset()));
}

TEST(ReferenceFile, FailedLoadLeavesTheStoreAndFailedSaveTheFileAsItWas) {
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

    std::filesystem::create_directory("wide.fxd.part");  // the file cannot be written
    saved.SetValid(true);
    EXPECT_THROW(saved.Save(), ReferenceException);
    EXPECT_EQ(bytes, ReadBytes("wide.fxd"));
}

TEST(ReferenceFile, StoreStateWithoutImagesComesBack) {
    ScratchDirectory directory;
    Reference store("state.fxd"), loaded("state.fxd");
    store.SetValid(true);
    ptree settings;
    settings.put("grid.deltaTime", 500);
    orvane::detail::WriteReferenceFile<unsigned char>(store, "ReferenceState", {}, settings);
    auto content = orvane::detail::ReadReferenceFile<unsigned char>(loaded, "ReferenceState", 0, 0, -1);
    EXPECT_TRUE(content.images.empty());
    EXPECT_TRUE(content.settings == settings);
    EXPECT_FALSE(loaded.IsValid());
    orvane::detail::CommitReferenceFile(loaded, content, {});
    EXPECT_TRUE(loaded.IsValid());
}
