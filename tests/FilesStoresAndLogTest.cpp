#include "TestImages.h"

#include "correction/ReferenceFile.h"
#include "interfaces/CorrectionGainLinear.h"
#include "interfaces/ReferenceDM.h"
#include "interfaces/ReferenceGainLinear.h"
#include "interfaces/ReferenceGainPoly.h"
#include "tools/ImageFxdFile.h"
#include "tools/Parallel.h"

#include <boost/crc.hpp>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <ostream>
#include <regex>
#include <stdexcept>
#include <tuple>
#include <type_traits>

using boost::property_tree::ptree;
using namespace orvane::test;
using Lines = std::vector<std::string>;
using Crc32c = boost::crc_optimal<32, 0x1EDC6F41, 0xFFFFFFFF, 0xFFFFFFFF, true, true>;

namespace {

// Saves `saved` as valid and loads it into `loaded`, whose images (as `images` lists
// them) stay the same objects and take the saved pixels and properties; `refused`, of
// another size or coefficient count, refuses the file and stays invalid.
template <typename Store, typename Images>
void SaveLoadAndRefuse(Store& saved, Store& loaded, Store& refused, Images images) {
    const auto live = images(loaded);
    saved.SetValid(true);
    saved.Save();
    loaded.Load();
    EXPECT_TRUE(loaded.IsValid());
    ASSERT_EQ(live, images(loaded));
    for (size_t i = 0; i < live.size(); ++i) {
        EXPECT_EQ(Pixels(images(saved)[i]), Pixels(live[i])) << i;
        EXPECT_TRUE(images(saved)[i]->GetProperties() == live[i]->GetProperties()) << i;
    }
    EXPECT_THROW(refused.Load(), ReferenceException);
    EXPECT_FALSE(refused.IsValid());
}

void WriteBytes(const std::string& name, const std::string& bytes) {
    std::ofstream(name, std::ios::binary | std::ios::trunc) << bytes;
}

// `bytes` with the header field at `offset` set to `value`, little-endian.
std::string WithInt32At(std::string bytes, size_t offset, std::int32_t value) {
    for (size_t i = 0; i < 4; ++i) bytes[offset + i] = char((std::uint32_t(value) >> (8 * i)) & 0xFF);
    return bytes;
}

std::string OpenFailure(const std::string& name) {
    return ThrownText<ImageFormatException>([&] { ImageFxdFileIn file(name); });
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
    const std::string message = ThrownText<ReferenceException>([&] { store.Load(); });
    EXPECT_EQ(live, store.GetOffset());
    EXPECT_EQ(pixels, Pixels(live));
    EXPECT_TRUE(properties == live->GetProperties());
    EXPECT_TRUE(store.IsValid());
    return message;
}

struct Counted {  // counts how often it is written to a stream
    int* writes;
};
std::ostream& operator<<(std::ostream& stream, const Counted& counted) { return stream << ++*counted.writes; }

template <typename T>
class ImageFxdRoundTrip : public ::testing::Test {};
using PixelTypes = ::testing::Types<float, unsigned short, unsigned char>;
TYPED_TEST_SUITE(ImageFxdRoundTrip, PixelTypes);

}  // namespace

TYPED_TEST(ImageFxdRoundTrip, FramesAndPropertiesComeBackBitExact) {
    ScratchDirectory directory;
    const std::vector<TypeParam> values = Extremes<TypeParam>();
    std::vector<ImagePtr<TypeParam>> frames;  // frame f: the values rotated left by f
    for (int f = 0; f < 3; ++f) frames.push_back(MakeImageOf<TypeParam>(3, 2, [&](int x, int y) { return values[(y * 3 + x + f) % 6]; }));
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
    // Two frames of 3x2 with properties on frame 0: 128 + block + 2 x 6 x 2 bytes.
    ImageFxdFileOut out("good.fxd");
    ptree properties;
    properties.put("image.time", 100);
    out.SetProperties(properties, 0);
    out.Open(3, 2, 1, true);
    const std::vector<unsigned short> pixels = {1, 2, 3, 4, 5, 6};
    out.WriteFrame(pixels.data(), 1);
    out.WriteFrame(pixels.data(), 0);
    out.Close();
    const std::string good = ReadFile("good.fxd");
    const std::string block = "frame 0 0:\n1 5:image 0:\n2 4:time 3:100\n";
    ASSERT_EQ(128 + block.size() + 2 * 6 * 2, good.size());
    // The checksum is CRC-32C (reflected, initial and final value all ones) of the file
    // with its own field read as zero.
    Crc32c crc;
    const std::string unsummed = WithInt32At(good, 36, 0);
    crc.process_bytes(unsummed.data(), unsummed.size());
    std::string header = "OFXD" + std::string(124, '\0');  // then 88 reserved zero bytes
    const std::vector<std::int32_t> fields = {1, 3, 2, 1, 2, std::int32_t(block.size()), 1, 1,
                                              std::int32_t(crc.checksum())};
    for (size_t i = 0; i < fields.size(); ++i) header = WithInt32At(header, 4 + 4 * i, fields[i]);
    EXPECT_EQ(header, good.substr(0, 128));
    EXPECT_EQ(block, good.substr(128, block.size()));
    EXPECT_EQ(std::string("\x06\x00", 2), good.substr(128 + block.size() + 10, 2));  // pixel 5: 6

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
        {WithInt32At(good, 32, 2), "has the invalid checksum flag 2"},
        {badBlock, "has an unreadable property block: "},
    };
    for (const auto& d : damaged) {
        WriteBytes("bad.fxd", d.bytes);
        const std::string text = OpenFailure("bad.fxd");
        EXPECT_EQ(0u, text.find("ImageFxdFileIn: 'bad.fxd' " + d.reason)) << text;
    }

    // Property trees nest at most 256 levels: copying and destroying one recurses per level.
    for (const int levels : {256, 257}) {
        std::string path = "k";
        for (int i = 1; i < levels; ++i) path += ".k";
        ptree deep;
        deep.put(path, "v");
        ImageFxdFileOut nested("deep.fxd");
        nested.SetProperties(deep, 0);
        nested.Open(1, 1, 2, true);
        nested.Close();
        if (levels == 256)
            EXPECT_EQ("v", ImageFxdFileIn("deep.fxd").GetProperties(0).get<std::string>(path));
        else
            EXPECT_EQ("ImageFxdFileIn: 'deep.fxd' has an unreadable property block: nodes nest deeper than 256",
                      OpenFailure("deep.fxd"));
    }

    ImageFxdFileIn file("good.fxd");
    std::vector<float> floats(6);
    EXPECT_EQ("ImageFxdFileIn: 'good.fxd' holds pixel type code 1, not 0",
              ThrownText<ImageFormatException>([&] { file.ReadFrame(floats.data(), 0); }));
    EXPECT_EQ("ImageFxdFileIn: 'good.fxd' has 2 frames, no frame 2",
              ThrownText<ImageFormatException>([&] { file.ReadImage<unsigned short>(2); }));
    EXPECT_EQ(std::vector<unsigned short>({1, 2, 3, 4, 5, 6}), Pixels(file.ReadImage<unsigned short>(1)));

    // Any changed byte but the checksum's own is found: a pixel, a digit of a property
    // that still parses, a header field; a file written before the checksum (flag and
    // checksum zero) reads as it is.
    EXPECT_TRUE(file.VerifyChecksum());
    std::string digit = good;
    digit[128 + block.find("100") + 2] = '1';
    for (const std::string& bytes : {WithInt32At(good, 128 + int(block.size()) + 8, 7), digit,
                                     WithInt32At(good, 20, 1).substr(0, good.size() - 12),
                                     WithInt32At(good, 36, int(crc.checksum() ^ 1u))}) {
        WriteBytes("bad.fxd", bytes);
        ImageFxdFileIn damaged("bad.fxd");
        const std::string text = ThrownText<ImageFormatException>([&] { damaged.VerifyChecksum(); });
        EXPECT_EQ(0u, text.find("ImageFxdFileIn: 'bad.fxd' is damaged: its checksum is ")) << text;
    }
    WriteBytes("old.fxd", WithInt32At(WithInt32At(digit, 32, 0), 36, 0));
    ImageFxdFileIn old("old.fxd");
    EXPECT_FALSE(old.VerifyChecksum());
    EXPECT_EQ("101", old.GetProperties(0).get<std::string>("image.time"));

    // A file of several read chunks and an odd length has the same checksum.
    const int width = 1031, height = 611;
    std::vector<unsigned short> large(static_cast<size_t>(width) * height);
    for (size_t i = 0; i < large.size(); ++i) large[i] = static_cast<unsigned short>(i * 2654435761u >> 7);
    ImageFxdFileOut big("big.fxd");
    properties.put("image.note", "odd!");
    big.SetProperties(properties, 0);
    big.Open(width, height, 1, true);
    big.WriteFrame(large.data(), 0);
    big.Close();
    const std::string bigBytes = ReadFile("big.fxd");
    ASSERT_EQ(1u, bigBytes.size() % 2);
    Crc32c bigCrc;
    const std::string bigUnsummed = WithInt32At(bigBytes, 36, 0);
    bigCrc.process_bytes(bigUnsummed.data(), bigUnsummed.size());
    EXPECT_EQ(WithInt32At(bigBytes, 36, std::int32_t(bigCrc.checksum())), bigBytes);
    EXPECT_TRUE(ImageFxdFileIn("big.fxd").VerifyChecksum());
}

TEST(LogAndThrow, LinesReachTheSinksInOrderThrowsLogTheChainInnerFirstAndCopiesKeepTheType) {
    // Lines are composed only while a sink listens.
    int writes = 0;
    Lines heard;
    orvane::detail::LogInfo("nobody hears this ", Counted{&writes});
    const int first = logger::manager().add_sink([&](const std::string& s) { heard.push_back("1 " + s); });
    const int second = logger::manager().add_sink([&](const std::string& s) { heard.push_back("2 " + s); });
    orvane::detail::LogInfo("CalibrationOffsetDynamic : UpdateSingleOffsetRef");
    logger::manager().log("");
    logger::manager().remove_sink(second);
    orvane::detail::LogError("value ", Counted{&writes});
    logger::manager().remove_sink(first);
    EXPECT_EQ(Lines({"1 I CalibrationOffsetDynamic : UpdateSingleOffsetRef\n",
                     "2 I CalibrationOffsetDynamic : UpdateSingleOffsetRef\n", "1 E value 1\n"}),
              heard);
    EXPECT_EQ(1, writes);
    EXPECT_TRUE(logger::manager().empty_sink());

    EXPECT_EQ("tools/image/ImageFxdFile(7): Writer: no space",  // composed also without a sink
              ThrownText<ImageFileException>(
                  [] { LogAndThrow<ImageFileException>("Writer: no space", "tools/image/ImageFxdFile", 7); }));
    LogCapture log;
    EXPECT_EQ("calibration/Outer.cpp(34): Outer: operation failed", ThrownText<CalibrationException>([] {
                  try {
                      LogAndThrow<CalibrationException>("Inner: step failed", "calibration/Inner.cpp", 12);
                  } catch (...) {
                      LogAndThrow<CalibrationException>("Outer: operation failed", "calibration/Outer.cpp", 34);
                  }
              }));
    ASSERT_EQ(Lines({"E calibration/Inner.cpp(12): Inner: step failed\n",
                     "E calibration/Outer.cpp(34): Outer: operation failed\n"}),
              log.lines);
    EXPECT_THROW(LogAndThrow<CalibrationException>("here", __FILE__, __LINE__), CalibrationException);
    EXPECT_EQ(0, log.lines.back().rfind("E tests/FilesStoresAndLogTest.cpp(", 0)) << "source directory not stripped";
    // The writer fails through it, with its own source as the file.
    ImageFxdFileOut file("never-opened.fxd");
    const unsigned short pixel = 1;
    const std::string written = ThrownText<ImageFileException>([&] { file.WriteFrame(&pixel, 0); });
    EXPECT_TRUE(std::regex_match(written, std::regex(R"(tools/image/ImageFxdFile\([1-9][0-9]*\): )"
                                                     R"(Impossible to write image 'never-opened\.fxd')")))
        << written;
    EXPECT_EQ("E " + written + "\n", log.lines.back());
    EXPECT_EQ(4u, log.lines.size());

    std::unique_ptr<BaseException> copy(ReferenceException("store refused").Clone());
    EXPECT_STREQ("store refused", copy->what());
    EXPECT_THROW(copy->Raise(), ReferenceException);
    EXPECT_STREQ("extract out of buffer range",
                 ImageFormatException(std::out_of_range("extract out of buffer range")).what());
}

TEST(ReferenceFile, StoresAreSavedAndLoadedIntoTheirLiveImagesAndFailuresChangeNothing) {
    ScratchDirectory directory;
    ReferenceOffsetSimple saved(3, 2, "offset.fxd"), loaded(3, 2, "offset.fxd"), wide(2, 3, "offset.fxd");
    *saved.GetOffset()->GetBuffer() = *MakeImage<unsigned short>(3, 2, {9, 8, 7, 6, 5, 65535})->GetBuffer();
    saved.GetOffset()->SetProperty("image.time", 42);
    SaveLoadAndRefuse(saved, loaded, wide, [](auto& s) { return std::vector<ImagePtr<unsigned short>>{s.GetOffset()}; });
    ReferenceOffsetSimple inMemory(2, 1);
    inMemory.GetOffset()->GetData()[0] = 5;
    inMemory.Save();
    inMemory.Load();
    EXPECT_EQ(std::vector<std::string>({"offset.fxd"}), directory.Entries());
    EXPECT_EQ(std::vector<unsigned short>({5, 0}), Pixels(inMemory.GetOffset()));

    // A failed load leaves the store, a failed save the file as it was.
    const std::string bytes = ReadFile("offset.fxd");
    WriteBytes("cut.fxd", bytes.substr(0, bytes.size() - 2));
    orvane::detail::WriteReferenceFile<unsigned short>(Reference("otherkind.fxd"), "ReferenceOther",
                                                       {saved.GetOffset()}, {});
    const std::tuple<int, int, const char*, const char*> loads[] = {
        {3, 2, "cut.fxd", "ReferenceOffsetSimple: cannot load 'cut.fxd': ImageFxdFileIn: 'cut.fxd' is truncated"},
        {2, 3, "offset.fxd", "are 3x2, the store's are 2x3"}, {3, 2, "otherkind.fxd", "file of a ReferenceOther"}};
    for (const auto& [width, height, path, reason] : loads) EXPECT_TRUE(Contains(LoadFailure(width, height, path), reason)) << path;
    std::string flipped = bytes;
    flipped.back() ^= 0x10;  // the last pixel's high byte
    WriteBytes("flipped.fxd", flipped);
    EXPECT_TRUE(Contains(LoadFailure(3, 2, "flipped.fxd"), "'flipped.fxd' is damaged: its checksum is "));
    WriteBytes("unsummed.fxd", WithInt32At(WithInt32At(flipped, 32, 0), 36, 0));  // as written before checksums
    ReferenceOffsetSimple unsummed(3, 2, "unsummed.fxd");
    unsummed.Load();
    EXPECT_EQ(65535 ^ 0x1000, unsummed.GetOffset()->GetData()[5]);

    std::filesystem::create_directory("offset.fxd.part");  // the file cannot be written
    EXPECT_THROW(saved.Save(), ReferenceException);
    EXPECT_EQ(bytes, ReadFile("offset.fxd"));

    ReferenceGainPoly poly(3, 2, 3, "poly.fxd"), polyLoaded(3, 2, 3, "poly.fxd"), fewer(3, 2, 2, "poly.fxd");
    for (int k = 0; k < 3; ++k) {
        const float top = (k + 1) / 3.0f;  // no short decimal
        poly.CompressImage(MakeImage<float>(3, 2, {top, -top / 2, top / 10, 0.0f, top / 7, -top}), k, poly.GetGainPoly()[k]);
    }
    poly.GetGainPoly()[1]->SetProperty("image.time", 42);
    SaveLoadAndRefuse(poly, polyLoaded, fewer, [](auto& s) { return s.GetGainPoly(); });
    for (int k = 0; k < 3; ++k) EXPECT_EQ(poly.GetScale(k), polyLoaded.GetScale(k));
    EXPECT_EQ(0.0f, fewer.GetScale(0));

    ReferenceGainLinear gain(3, 2, "gain.fxd"), gainLoaded(3, 2, "gain.fxd"), otherSize(2, 3, "gain.fxd");
    gain.CompressImage(MakeImage<float>(3, 2, {1.0f, 2.0f, 0.5f, 0.25f, 3.0f, 1.5f}), gain.GetGainLinear());
    gain.GetGainLinear()->SetProperty("image.time", 42);
    gain.SetGainInversion(true);
    SaveLoadAndRefuse(gain, gainLoaded, otherSize,
                      [](auto& s) { return std::vector<ImagePtr<unsigned short>>{s.GetGainLinear()}; });
    EXPECT_TRUE(gainLoaded.GetGainInversion());
    EXPECT_FALSE(otherSize.GetGainInversion());

    ReferenceDM map(2, 2, "dm.fxd"), mapLoaded(2, 2, "dm.fxd"), otherShape(4, 1, "dm.fxd");
    std::copy_n(Bytes{1, 0, 9, 17}.begin(), 4, map.GetDM()->GetData());
    map.SetExternalDM(MakeImage<unsigned char>(2, 2, {0, 4, 0, 0}));
    map.SetMerged(true);
    SaveLoadAndRefuse(map, mapLoaded, otherShape, [](auto& s) { return std::vector<ImagePtr<unsigned char>>{s.GetDM()}; });
    EXPECT_TRUE(mapLoaded.IsMerged());
    auto image = MakeImage<unsigned char>(2, 2);
    ASSERT_TRUE(mapLoaded.LoadMergeDM(image));
    EXPECT_EQ(Bytes({0, 4, 0, 0}), Pixels(image));
    // A map without an external one saves one image; loading it drops the old one.
    ReferenceDM(2, 2, "dm.fxd").Save();
    mapLoaded.Load();
    EXPECT_FALSE(mapLoaded.HasExternalDM());
    EXPECT_FALSE(mapLoaded.IsMerged());
    EXPECT_EQ(Bytes({0, 0, 0, 0}), Pixels(mapLoaded.GetDM()));
}

// A header may claim any number of empty (0 x 0) frames: the file's length does not
// bound them. A store whose image count is the file's (clusters) must not make an
// image per claimed frame: frames without their properties node are refused.
TEST(ReferenceFile, ClustersRefuseAHeaderClaimingEmptyFramesThatItsPropertiesDoNotHold) {
    ScratchDirectory directory;
    {
        ImageFxdFileOut out("clusters.fxd");
        ptree head;
        head.put("reference.kind", "ReferenceClusters");
        head.put("reference.valid", true);
        head.put_child("reference.settings", ptree());
        out.SetProperties(head, 0);
        out.Open(0, 0, orvane::detail::FxdPixelType<unsigned short>::code, true);
        const unsigned short none = 0;
        out.WriteFrame(&none, 99999);  // 0 bytes; the header now claims 100000 frames
        out.Close();
    }
    ASSERT_EQ(100000, ImageFxdFileIn("clusters.fxd").GetFrameCount());

    ReferenceClusters clusters("clusters.fxd");
    clusters.AddCluster(MakeImage<unsigned short>(2, 1, {7, 8}));
    const std::string failure = ThrownText<ReferenceException>([&] { clusters.Load(); });
    EXPECT_NE(std::string::npos, failure.find("ReferenceClusters: cannot load 'clusters.fxd': its image 0 of 100000 "
                                              "has no properties"))
        << failure;
    ASSERT_EQ(1u, clusters.GetClusters().size());
    EXPECT_EQ(std::vector<unsigned short>({7, 8}), Pixels(clusters.GetClusters()[0]));
    EXPECT_FALSE(clusters.IsValid());
}

TEST(ReferenceGainPoly, RoundTripStaysWithinHalfAStepAndEachCoefficientKeepsItsScale) {
    // 131 x 97: several pieces of the parallel passes. The scale is the largest finite
    // magnitude of the whole image, here in the last piece, for any thread count.
    const int width = 131, height = 97, count = width * height;
    auto values = MakeImage<float>(width, height, {0.0f, kNaN, kInf, -kInf});
    for (int i = 4; i < count; ++i) values->GetData()[i] = static_cast<float>(std::sin(i * 0.37) * 3e-6);
    values->GetData()[count - 1] = -4e-6f;
    const double scale = 4e-6f, step = scale / 32767;
    for (const int threads : {1, 3}) {
        orvane::SetThreadCount(threads);
        ReferenceGainPoly store(width, height);
        EXPECT_EQ(3, store.GetGainPolyCoeff());
        auto codes = MakeImage<unsigned short>(width, height);
        auto back = MakeImage<float>(width, height);
        store.CompressImage(values, 2, codes);
        store.DeCompressImage(2, codes, back);
        EXPECT_EQ(scale, store.GetScale(2));
        // 0, NaN as 0, +-inf as +-S, -S
        const int ends[] = {0, 1, 2, 3, count - 1};
        std::vector<unsigned short> endCodes;
        std::vector<float> endValues;
        for (int i : ends) endCodes.push_back(codes->GetData()[i]), endValues.push_back(back->GetData()[i]);
        EXPECT_EQ((std::vector<unsigned short>{32768, 32768, 65535, 1, 1}), endCodes);
        EXPECT_EQ((std::vector<float>{0.0f, 0.0f, 4e-6f, -4e-6f, -4e-6f}), endValues);
        for (int i = 4; i < count - 1; ++i) {
            const double v = values->GetData()[i];
            ASSERT_EQ(32768 + std::lround(v * 32767 / scale), codes->GetData()[i]) << i;  // half away from zero
            ASSERT_LE(std::fabs(back->GetData()[i] - v), step / 2 + std::fabs(v) * 0x1p-24) << i;
        }
    }
    orvane::SetThreadCount(0);

    ReferenceGainPoly pair(2, 1);
    const auto images = pair.GetGainPoly();
    auto pairBack = MakeImage<float>(2, 1);
    const float given[3][2] = {{1.5f, -0.75f}, {2e-9f, 1e-9f}, {0.0f, 0.0f}};  // nothing non-zero: scale 0
    for (int k = 0; k < 3; ++k) pair.CompressImage(MakeImage<float>(2, 1, {given[k][0], given[k][1]}), k, images[k]);
    images[0]->GetProperties().clear();
    images[0]->SetProperty("image.time", 3);
    for (int k = 0; k < 3; ++k) {
        pair.DeCompressImage(k, images[k], pairBack);
        EXPECT_EQ(given[k][0], pair.GetScale(k));
        EXPECT_EQ(given[k][0], pairBack->GetData()[0]);
        EXPECT_NEAR(given[k][1], pairBack->GetData()[1], given[k][0] / 65534 + given[k][0] * 0x1p-24) << k;
    }
    EXPECT_THROW(pair.CompressImage(pairBack, 3, images[0]), ReferenceException);
    EXPECT_THROW(pair.CompressImage(MakeImage<float>(1, 2, {9.0f, 9.0f}), 0, images[0]), ReferenceException);
    EXPECT_THROW(pair.DeCompressImage(-1, images[0], pairBack), ReferenceException);
    EXPECT_THROW(pair.DeCompressImage(0, nullptr, pairBack), ReferenceException);
    EXPECT_EQ(1.5f, pair.GetScale(0));  // refused calls change nothing
    EXPECT_THROW(ReferenceGainPoly(2, 1, -1), ReferenceException);
}

TEST(ReferenceGainLinear, CodesStayWithinHalfAStepAndTheCorrectionDividesOrMultipliesByTheStoredGain) {
    ReferenceGainLinear store(12, 1);
    // Multiples of 2^-14 below 4 are exact; 4.0 and beyond take the top code; NaN,
    // negatives and gains below 2^-15 code 0.
    auto gain = MakeImage<float>(12, 1, {0.25f, 0.5f, 1.0f, 2.0f, 3.99993896484375f, 4.0f, 1e6f, kInf, kNaN, -1.0f,
                                         1.0f / 65536, 1.0f / 32768});
    auto codes = MakeImage<unsigned short>(12, 1);
    store.CompressImage(gain, codes);
    EXPECT_EQ((std::vector<unsigned short>{4096, 8192, 16384, 32768, 65535, 65535, 65535, 65535, 0, 0, 0, 1}),
              Pixels(codes));

    auto back = MakeImage<float>(12, 1);
    for (float g = 0.25f; g < 4.0f; g = std::nextafter(g * 1.0007f, 5.0f)) {
        gain->GetData()[0] = g;
        store.CompressImage(gain, codes);
        store.DeCompressImage(codes, back);
        ASSERT_LE(std::fabs(back->GetData()[0] - double(g)), 1.0 / 32768) << g;
        ASSERT_EQ(codes->GetData()[0] / 16384.0, back->GetData()[0]);
    }

    auto shared = boost::make_shared<ReferenceGainLinear>(4, 1);
    shared->CompressImage(MakeImage<float>(4, 1, {2.0f, 0.5f, 1.5f, 0.0f}), shared->GetGainLinear());
    CorrectionGainLinear correction(shared);
    for (bool inverted : {false, true}) {
        shared->SetGainInversion(inverted);  // read at each Correct
        ImagePtr<float> image = MakeImage<float>(4, 1, {1000.0f, 1000.0f, 1000.0f, 1000.0f});
        correction.Correct(image);
        EXPECT_EQ((inverted ? std::vector<float>{2000.0f, 500.0f, 1500.0f, 0.0f}
                            : std::vector<float>{500.0f, 2000.0f, 1000.0f / 1.5f, 0.0f}),
                  Pixels(image));
    }
    ImagePtr<float> wrong = MakeImage<float>(4, 2);
    EXPECT_THROW(correction.Correct(wrong), ReferenceException);
    EXPECT_THROW(CorrectionGainLinear(nullptr), ReferenceException);
    EXPECT_THROW(shared->CompressImage(MakeImage<float>(4, 1), nullptr), ReferenceException);
    EXPECT_THROW(shared->CompressImage(MakeImage<float>(1, 4), shared->GetGainLinear()), ReferenceException);
    EXPECT_THROW(shared->DeCompressImage(shared->GetGainLinear(), MakeImage<float>(4, 2)), ReferenceException);
}

TEST(ReferenceDM, MergeAddsACopyOfTheExternalMapWithWrapAround) {
    ReferenceDM store(3, 1);
    const ImagePtr<unsigned char> live = store.GetDM();
    std::copy_n(Bytes{200, 0, 1}.begin(), 3, live->GetData());
    auto image = MakeImage<unsigned char>(3, 1, {7, 7, 7});
    EXPECT_FALSE(store.LoadMergeDM(image));  // no external map yet: nothing changes
    EXPECT_EQ(Bytes({7, 7, 7}), Pixels(image));
    EXPECT_EQ(Bytes({200, 0, 1}), Pixels(live));
    EXPECT_FALSE(store.IsMerged());
    EXPECT_THROW(store.LoadMergeDM(MakeImage<unsigned char>(3, 2)), ReferenceException);

    auto external = MakeImage<unsigned char>(3, 1, {100, 3, 0});
    external->SetProperty("origin", "factory");
    store.SetExternalDM(external);
    external->GetData()[1] = 99;  // the store kept its own copy
    EXPECT_TRUE(store.LoadMergeDM(image));
    EXPECT_EQ(Bytes({100, 3, 0}), Pixels(image));
    EXPECT_EQ("factory", image->GetProperty<std::string>("origin"));
    EXPECT_EQ(Bytes({44, 3, 1}), Pixels(live));  // 300 keeps its low byte
    EXPECT_TRUE(store.IsMerged());

    EXPECT_THROW(store.SetExternalDM(MakeImage<unsigned char>(3, 2)), ReferenceException);
    store.SetExternalDM(nullptr);
    EXPECT_FALSE(store.HasExternalDM());
}

