// The factory's plugin table, detection order, raw-buffer handling and name lookup,
// exercised with fake plugins on format numbers no built-in plugin uses.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "lumo/image/image_factory.h"

namespace lumo::image {
namespace {

// Accepts buffers starting with its tag; records what Create received.
class FakePlugin : public ImagePlugin {
 public:
  FakePlugin(ImageFormat format, const char* name, const char* tag, bool shares)
      : format_(format), name_(name), tag_(tag), shares_(shares) {}
  ImageFormat Format() override { return format_; }
  const char* Name() override { return name_; }
  bool CheckFormat(const char* data, size_t size) override {
    return size >= std::strlen(tag_) && std::memcmp(data, tag_, std::strlen(tag_)) == 0;
  }
  bool SharesSourceBuffer() override { return shares_; }
  std::shared_ptr<Image> Create(const std::shared_ptr<char>& data, size_t) override {
    received = data;
    return Image::Null;
  }
  std::shared_ptr<char> Serialize(const SurfaceData* surface, size_t* size, int flags) override {
    serialized = surface;
    last_flags = flags;
    *size = 3;
    return std::shared_ptr<char>(new char[3]{'a', 'b', 'c'}, array_deleter());
  }
  std::shared_ptr<char> received;
  const SurfaceData* serialized = nullptr;
  int last_flags = 0;

 private:
  ImageFormat format_;
  const char* name_;
  const char* tag_;
  bool shares_;
};

constexpr auto kFirst = static_cast<ImageFormat>(60);
constexpr auto kSecond = static_cast<ImageFormat>(61);

// Registers fakes for one test and removes them afterwards, leaving the built-ins alone.
class ImageFactoryTest : public ::testing::Test {
 protected:
  void TearDown() override {
    factory->Unregister(kFirst);
    factory->Unregister(kSecond);
  }
  ImageFactory* factory = ImageFactory::Instance();
};

TEST_F(ImageFactoryTest, DetectionFollowsRegistrationOrderAndReplacementKeepsThePlace) {
  FakePlugin wide(kFirst, "Wide", "LM", false), narrow(kSecond, "Narrow", "LMX", false);
  factory->Register(&wide);
  factory->Register(&narrow);
  EXPECT_EQ(factory->GetFormat("LMX!", 4), kFirst) << "the plugin registered first wins";
  EXPECT_EQ(factory->GetFormat("LM", 1), ImageFormat::UNKNOWN) << "size bounds the signature test";

  FakePlugin replacement(kFirst, "Other", "QQ", false);
  factory->Register(&replacement);
  EXPECT_EQ(factory->GetFormat("LMX!", 4), kSecond);
  EXPECT_EQ(factory->GetFormat("QQ", 2), kFirst);

  factory->Unregister(kFirst);
  factory->Unregister(kFirst);  // not registered any more: no change
  EXPECT_FALSE(factory->IsRegistered(kFirst));
  EXPECT_FALSE(factory->CheckFormat(kFirst, "QQ", 2));
  EXPECT_TRUE(factory->CheckFormat(kSecond, "LMX", 3));
  // Registered again, it is asked after everything else.
  factory->Register(&wide);
  EXPECT_EQ(factory->GetFormat("LMX!", 4), kSecond);
}

TEST_F(ImageFactoryTest, RawBuffersAreCopiedOnlyForPluginsThatKeepThem) {
  FakePlugin keeper(kFirst, "Keeper", "K", true), reader(kSecond, "Reader", "R", false);
  factory->Register(&keeper);
  factory->Register(&reader);
  char bytes[] = "K123";
  factory->Create(bytes, 4);
  ASSERT_TRUE(keeper.received);
  EXPECT_NE(keeper.received.get(), bytes);
  EXPECT_EQ(std::string(keeper.received.get(), 4), "K123");

  char other[] = "R123";
  factory->Create(other, 4);
  EXPECT_EQ(reader.received.get(), other);
  reader.received.reset();  // borrowed: releasing it must not free the caller's array

  std::shared_ptr<char> shared(new char[2]{'K', '!'}, array_deleter());
  factory->Create(shared, 2);
  EXPECT_EQ(keeper.received, shared) << "a shared buffer is passed through untouched";
  EXPECT_FALSE(factory->Create(ImageFormat::UNKNOWN, shared, 2));
  EXPECT_FALSE(factory->Create("nothing", 7));
}

TEST_F(ImageFactoryTest, NamesAndSerializationGoThroughTheRegisteredPlugin) {
  FakePlugin plugin(kFirst, "Fake", "F", false);
  factory->Register(&plugin);
  EXPECT_STREQ(ImageFactory::FormatToString(kFirst), "Fake");
  EXPECT_STREQ(ImageFactory::FormatToString(kSecond), "UNKNOWN");
  EXPECT_EQ(ImageFactory::StringToFormat("fAKe"), kFirst);
  EXPECT_EQ(ImageFactory::StringToFormat("dds"), ImageFormat::DDS);
  EXPECT_EQ(ImageFactory::StringToFormat("Fak"), ImageFormat::UNKNOWN);
  EXPECT_EQ(ImageFactory::StringToFormat(""), ImageFormat::UNKNOWN);

  // A pyramid goes to the plugin as level 0, surface 0; ToImage reports the size.
  auto data = SurfaceDataBitmap::Create(2, 2, formats::R8, 2);
  auto level0 = std::make_shared<Surface>(std::shared_ptr<SurfaceData>(data));
  auto level1 = std::make_shared<Surface>(SurfaceDataBitmap::Create(1, 1, formats::R8, 2));
  auto pyramid = Pyramid::Make({level0, level1}, ImageOrigin::TopDown);
  unsigned long long size = 0;
  const auto file = pyramid->ToImage(kFirst, &size, 7);
  ASSERT_TRUE(file);
  EXPECT_EQ(size, 3u);
  EXPECT_EQ(plugin.serialized, data.get());
  EXPECT_EQ(plugin.last_flags, 7);

  size = 99;
  EXPECT_FALSE(data->ToImage(kSecond, &size, 0));
  EXPECT_EQ(size, 99u) << "size untouched on failure";
  EXPECT_FALSE(Pyramid::Make(std::vector<std::shared_ptr<Mipmap>>{}, ImageOrigin::TopDown)->ToImage(kFirst, &size, 0));
}

}  // namespace
}  // namespace lumo::image
