// The WIC decoders against files the tests write themselves: exact pixels of PNG files, JPEG
// approximately, GIF animations composed with their offsets, disposal methods, transparency and
// delays, the per-path caches, the memory budget and its warning, files that cannot be read, and
// animations whose later frame cannot be read.
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "live_output/test_support/failing_frame_wic_decoder.h"
#include "live_output/test_support/gif_test_file_writer.h"
#include "live_output/images/image_decoder.h"
#include "live_output/test_support/image_decoder_test_files.h"
#include "live_output/log/logger.h"

namespace native_live_window {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

using GifFrame = GifTestFileWriter::Frame;

constexpr std::uint32_t kBlue = 0xFF0000FF;
constexpr std::uint32_t kRed = 0xFFFF0000;
constexpr std::uint32_t kGreen = 0xFF00FF00;
constexpr std::uint32_t kWhite = 0xFFFFFFFF;
constexpr std::uint32_t kTransparent = 0x00000000;

// A decoded pixel as 0xAARRGGBB, from BGRA bytes.
std::uint32_t PixelAt(const std::vector<std::uint8_t>& bgra, std::uint32_t width, std::uint32_t x,
                      std::uint32_t y) {
  const std::uint8_t* p = bgra.data() + (std::size_t{y} * width + x) * 4;
  return (std::uint32_t{p[3]} << 24) | (std::uint32_t{p[2]} << 16) | (std::uint32_t{p[1]} << 8) |
         p[0];
}

// What a composed canvas holds at (x, y), described by a function of the position.
template <typename Expected>
void ExpectCanvas(const std::vector<std::uint8_t>& bgra, std::uint32_t width, std::uint32_t height,
                  Expected expected) {
  ASSERT_EQ(bgra.size(), std::size_t{width} * height * 4);
  for (std::uint32_t y = 0; y < height; ++y) {
    for (std::uint32_t x = 0; x < width; ++x) {
      ASSERT_EQ(PixelAt(bgra, width, x, y), expected(x, y))
          << std::hex << "at " << std::dec << x << "," << y;
    }
  }
}

bool Inside(std::uint32_t x, std::uint32_t y, std::uint32_t x0, std::uint32_t y0, std::uint32_t x1,
            std::uint32_t y1) {
  return x >= x0 && x < x1 && y >= y0 && y < y1;
}

// BGRA bytes of a picture given as 0xAARRGGBB colours.
std::vector<std::uint8_t> ToBgra(const std::vector<std::uint32_t>& argb) {
  std::vector<std::uint8_t> bgra;
  for (std::uint32_t c : argb) {
    bgra.insert(bgra.end(),
                {static_cast<std::uint8_t>(c), static_cast<std::uint8_t>(c >> 8),
                 static_cast<std::uint8_t>(c >> 16), static_cast<std::uint8_t>(c >> 24)});
  }
  return bgra;
}

// A width x height picture of four coloured quadrants, with a few marked pixels.
std::vector<std::uint32_t> QuadrantPicture(std::uint32_t width, std::uint32_t height) {
  std::vector<std::uint32_t> argb(std::size_t{width} * height);
  for (std::uint32_t y = 0; y < height; ++y) {
    for (std::uint32_t x = 0; x < width; ++x) {
      const bool right = x >= width / 2;
      const bool bottom = y >= height / 2;
      argb[std::size_t{y} * width + x] =
          bottom ? (right ? kWhite : kGreen) : (right ? kBlue : kRed);
    }
  }
  return argb;
}

// COM as the host initialises it on the platform thread, a folder of test files and a decoder.
class ImageDecoderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
    files_ = std::make_unique<ImageDecoderTestFiles>();
    ASSERT_TRUE(files_->ok());
    decoder_ = std::make_unique<ImageDecoder>();
  }
  void TearDown() override {
    decoder_.reset();
    files_.reset();
    CoUninitialize();
  }

  std::string WriteGif(const std::string& name, std::uint16_t screen_width,
                       std::uint16_t screen_height, const std::vector<GifFrame>& frames) {
    const std::vector<std::uint8_t> bytes =
        GifTestFileWriter::Build(screen_width, screen_height, frames);
    EXPECT_FALSE(bytes.empty());
    EXPECT_TRUE(files_->WriteBytes(name, bytes));
    return files_->Path(name);
  }

  std::string WritePng(const std::string& name, std::uint32_t width, std::uint32_t height,
                       const std::vector<std::uint32_t>& argb) {
    EXPECT_TRUE(files_->WritePng(name, width, height, ToBgra(argb)));
    return files_->Path(name);
  }

  // A two-frame animation, each frame a different solid colour over the whole screen.
  std::string WriteTwoColourGif(const std::string& name, std::uint32_t first,
                                std::uint32_t second) {
    return WriteGif(name, 4, 4,
                    {GifTestFileWriter::SolidFrame(0, 0, 4, 4, first),
                     GifTestFileWriter::SolidFrame(0, 0, 4, 4, second)});
  }

  std::unique_ptr<ImageDecoderTestFiles> files_;
  std::unique_ptr<ImageDecoder> decoder_;
};

// --- Still images ---

TEST_F(ImageDecoderTest, PngGivesItsExactPixelsWithStraightAlpha) {
  std::vector<std::uint32_t> argb = QuadrantPicture(6, 4);
  argb[1] = 0x80336699;  // half transparent: straight, not premultiplied
  argb[2] = 0x00000000;  // fully transparent
  // A UTF-8 name ("Bühne 日本.png") must reach the file system intact.
  const std::string path = WritePng("B\xC3\xBChne \xE6\x97\xA5\xE6\x9C\xAC.png", 6, 4, argb);
  ASSERT_TRUE(std::filesystem::exists(std::filesystem::path(ImageDecoderTestFiles::Widen(path))));

  ASSERT_TRUE(decoder_->DecodeImage(path));
  const DecodedImage& image = decoder_->decoded_image();
  EXPECT_EQ(image.path, path);
  EXPECT_EQ(image.width, 6u);
  EXPECT_EQ(image.height, 4u);
  ExpectCanvas(image.pixels, 6, 4,
               [&](std::uint32_t x, std::uint32_t y) { return argb[std::size_t{y} * 6 + x]; });
}

// --- Animated GIF ---

// Canvas 20 x 20:
//   0: blue over everything, kept (disposal 1), delay field 0
//   1: red 10 x 10 at (5, 5), restored to background afterwards (disposal 2), delay 1
//   2: green 4 x 4 at (0, 0) with a transparent pixel at (1, 1), restored to previous
//      (disposal 3), delay 2
//   3: white 2 x 2 at (18, 18), no control block (so no delay)
//   4: one transparent pixel, delay 7
std::vector<GifFrame> CompositionFrames() {
  std::vector<GifFrame> frames;
  frames.push_back(GifTestFileWriter::SolidFrame(0, 0, 20, 20, kBlue));
  frames.back().disposal = 1;
  frames.back().delay = 0;
  frames.push_back(GifTestFileWriter::SolidFrame(5, 5, 10, 10, kRed));
  frames.back().disposal = 2;
  frames.back().delay = 1;
  frames.push_back(GifTestFileWriter::SolidFrame(0, 0, 4, 4, kGreen));
  frames.back().argb[1 * 4 + 1] = kTransparent;
  frames.back().disposal = 3;
  frames.back().delay = 2;
  frames.push_back(GifTestFileWriter::SolidFrame(18, 18, 2, 2, kWhite));
  frames.back().has_control = false;
  frames.push_back(GifTestFileWriter::SolidFrame(0, 0, 1, 1, kTransparent));
  frames.back().delay = 7;
  return frames;
}

TEST_F(ImageDecoderTest, AnimatedGifFramesAreComposedAndTimed) {
  const std::string path = WriteGif("composition.gif", 20, 20, CompositionFrames());

  ASSERT_TRUE(decoder_->DecodeAnimatedGif(path));
  const AnimatedImage& image = decoder_->animated_image();
  EXPECT_EQ(image.path, path);
  EXPECT_EQ(image.canvas_width, 20u);
  EXPECT_EQ(image.canvas_height, 20u);
  ASSERT_TRUE(image.frames);
  ASSERT_EQ(image.frames->size(), 5u);
  const auto& frames = *image.frames;

  ExpectCanvas(frames[0], 20, 20, [](std::uint32_t, std::uint32_t) { return kBlue; });
  ExpectCanvas(frames[1], 20, 20, [](std::uint32_t x, std::uint32_t y) {
    return Inside(x, y, 5, 5, 15, 15) ? kRed : kBlue;
  });
  // The red square was cleared to transparent black; green on top, blue through its hole.
  const auto cleared = [](std::uint32_t x, std::uint32_t y) {
    return Inside(x, y, 5, 5, 15, 15) ? kTransparent : kBlue;
  };
  ExpectCanvas(frames[2], 20, 20, [&](std::uint32_t x, std::uint32_t y) {
    if (Inside(x, y, 0, 0, 4, 4) && !(x == 1 && y == 1)) return kGreen;
    return cleared(x, y);
  });
  // The green patch is gone again (restore to previous).
  const auto with_white = [&](std::uint32_t x, std::uint32_t y) {
    return Inside(x, y, 18, 18, 20, 20) ? kWhite : cleared(x, y);
  };
  ExpectCanvas(frames[3], 20, 20, with_white);
  ExpectCanvas(frames[4], 20, 20, with_white);
  // 0 -> 100, 1 (10 ms) -> 100, 2 -> 20, none -> 100, 7 -> 70.
  EXPECT_THAT(image.delays_ms, ElementsAre(100u, 100u, 20u, 100u, 70u));
}

TEST_F(ImageDecoderTest, ZeroLogicalScreenTakesTheFirstFrameSize) {
  const std::vector<GifFrame> frames = {GifTestFileWriter::SolidFrame(0, 0, 6, 3, kRed),
                                        GifTestFileWriter::SolidFrame(2, 1, 2, 2, kBlue)};
  const std::string path = WriteGif("noscreen.gif", 0, 0, frames);
  ASSERT_TRUE(decoder_->DecodeAnimatedGif(path));
  const AnimatedImage& image = decoder_->animated_image();
  EXPECT_EQ(image.canvas_width, 6u);
  EXPECT_EQ(image.canvas_height, 3u);
  ExpectCanvas((*image.frames)[1], 6, 3, [](std::uint32_t x, std::uint32_t y) {
    return Inside(x, y, 2, 1, 4, 3) ? kBlue : kRed;
  });
}

TEST_F(ImageDecoderTest, SingleFrameGifIsStillAndShowsItsFrameAsStored) {
  // The one frame is a patch smaller than the screen: the still image is the patch, not
  // composed.
  const std::string single =
      WriteGif("single.gif", 8, 8, {GifTestFileWriter::SolidFrame(4, 4, 2, 3, kWhite)});
  EXPECT_FALSE(decoder_->DecodeAnimatedGif(single));
  EXPECT_TRUE(decoder_->animated_image().path.empty());
  ASSERT_TRUE(decoder_->DecodeImage(single));
  EXPECT_EQ(decoder_->decoded_image().width, 2u);
  EXPECT_EQ(decoder_->decoded_image().height, 3u);
  ExpectCanvas(decoder_->decoded_image().pixels, 2, 3,
               [](std::uint32_t, std::uint32_t) { return kWhite; });
}

// --- Memory budget ---

// Captures one logger's file output in a folder of its own.
class ImageDecoderBudgetTest : public ImageDecoderTest {
 protected:
  void SetUp() override {
    ImageDecoderTest::SetUp();
    logger_ = std::make_unique<Logger>(Logger::Clock(), [](const char*) {});
    logger_->Initialize(files_->Path("logs"));
    decoder_ = std::make_unique<ImageDecoder>(*logger_);
  }
  void TearDown() override {
    decoder_.reset();
    logger_.reset();  // closes the log file before the folder goes
    ImageDecoderTest::TearDown();
  }

  // Every log line written so far, from every hourly file.
  std::string LogText() const {
    std::string text;
    std::error_code error;
    const std::filesystem::path folder(ImageDecoderTestFiles::Widen(files_->Path("logs")));
    for (std::filesystem::recursive_directory_iterator it(folder, error), end; !error && it != end;
         it.increment(error)) {
      if (it->is_regular_file()) {
        text += ImageDecoderTestFiles::ReadText(it->path().wstring());
      }
    }
    return text;
  }

  // A GIF of the given logical screen and frame count, each frame one small patch.
  std::string WriteLargeScreenGif(const std::string& name, std::uint16_t width,
                                  std::uint16_t height, std::size_t frame_count) {
    std::vector<GifFrame> frames;
    for (std::size_t i = 0; i < frame_count; ++i) {
      frames.push_back(GifTestFileWriter::SolidFrame(static_cast<std::uint16_t>(i), 0, 1, 1,
                                                     i % 2 == 0 ? kRed : kGreen));
    }
    return WriteGif(name, width, height, frames);
  }

  std::unique_ptr<Logger> logger_;
};

std::size_t CountOccurrences(const std::string& text, const std::string& needle) {
  std::size_t count = 0;
  for (std::size_t at = text.find(needle); at != std::string::npos;
       at = text.find(needle, at + needle.size())) {
    ++count;
  }
  return count;
}

TEST_F(ImageDecoderBudgetTest, OverBudgetAnimationWarnsOnceAndFallsBackToTheFirstFrame) {
  // 1920 x 1080 x 4 x 33 frames = about 273 MB.
  const std::string path = WriteLargeScreenGif("huge.gif", 1920, 1080, 33);

  EXPECT_FALSE(decoder_->DecodeAnimatedGif(path));
  EXPECT_TRUE(decoder_->animated_image().path.empty());
  EXPECT_FALSE(decoder_->animated_image().frames);

  const std::string log = LogText();
  EXPECT_EQ(CountOccurrences(log,
                             "WARNING [GIF] Animated GIF exceeds 256 MB budget "
                             "(1920x1080 x 33 frames); using static frame"),
            1u)
      << log;
  EXPECT_EQ(CountOccurrences(log, "[GIF]"), 1u) << log;

  // The plugin then shows frame 0 through the static decoder.
  ASSERT_TRUE(decoder_->DecodeImage(path));
  EXPECT_EQ(decoder_->decoded_image().width, 1u);
  EXPECT_EQ(PixelAt(decoder_->decoded_image().pixels, 1, 0, 0), kRed);
}

// --- A later frame that cannot be read ---

// However many frames were read before it, a frame that cannot be read fails the whole animation
// without a log line, and the first frame is still there to be shown as a still image.
TEST_F(ImageDecoderBudgetTest, UnreadableLaterFrameFailsTheAnimationSilently) {
  const std::string path = WriteGif("damaged.gif", 4, 4,
                                    {GifTestFileWriter::SolidFrame(0, 0, 4, 4, kRed),
                                     GifTestFileWriter::SolidFrame(0, 0, 4, 4, kGreen),
                                     GifTestFileWriter::SolidFrame(0, 0, 4, 4, kBlue)});
  struct Case {
    UINT frame;
    FrameFailure failure;
  };
  const Case cases[] = {{1, FrameFailure::kGetFrame},
                        {2, FrameFailure::kGetFrame},
                        {1, FrameFailure::kCopyPixels},
                        {2, FrameFailure::kCopyPixels}};
  const std::string log_before = LogText();
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "frame " << c.frame << " failing at "
                                      << (c.failure == FrameFailure::kGetFrame ? "GetFrame"
                                                                               : "CopyPixels"));
    decoder_ = std::make_unique<ImageDecoder>(*logger_);
    decoder_->SetDecoderWrapperForTesting([&c](IWICBitmapDecoder* opened) {
      return WrapWithFailingFrame(opened, c.frame, c.failure);
    });
    EXPECT_FALSE(decoder_->DecodeAnimatedGif(path));
    EXPECT_TRUE(decoder_->animated_image().path.empty());
    EXPECT_FALSE(decoder_->animated_image().frames);
    ASSERT_TRUE(decoder_->DecodeImage(path));
    ExpectCanvas(decoder_->decoded_image().pixels, 4, 4,
                 [](std::uint32_t, std::uint32_t) { return kRed; });
  }
  EXPECT_EQ(LogText(), log_before);
}

// --- Caches ---

TEST_F(ImageDecoderTest, EachDecoderKeepsItsLastPath) {
  const std::string red = WritePng("red.png", 1, 1, {kRed});
  const std::string blue = WritePng("blue.png", 1, 1, {kBlue});
  ASSERT_TRUE(decoder_->DecodeImage(red));
  ASSERT_TRUE(decoder_->DecodeImage(red));
  EXPECT_EQ(decoder_->static_decode_count(), 1u);
  ASSERT_TRUE(decoder_->DecodeImage(blue));
  ASSERT_TRUE(decoder_->DecodeImage(red));
  EXPECT_EQ(PixelAt(decoder_->decoded_image().pixels, 1, 0, 0), kRed);
  EXPECT_EQ(decoder_->static_decode_count(), 3u);

  const std::string first = WriteTwoColourGif("first.gif", kRed, kGreen);
  const std::string second = WriteTwoColourGif("second.gif", kBlue, kWhite);
  ASSERT_TRUE(decoder_->DecodeAnimatedGif(first));
  const std::shared_ptr<const AnimatedImage::FrameList> shown = decoder_->animated_image().frames;
  ASSERT_TRUE(decoder_->DecodeAnimatedGif(first));
  EXPECT_EQ(decoder_->animated_decode_count(), 1u);
  EXPECT_EQ(decoder_->animated_image().frames, shown);  // the very same frames
  // Frames handed to a window outlive the decoder moving on.
  ASSERT_TRUE(decoder_->DecodeAnimatedGif(second));
  ASSERT_EQ(shown->size(), 2u);
  EXPECT_EQ(PixelAt((*shown)[1], 4, 3, 3), kGreen);
  EXPECT_EQ(PixelAt((*decoder_->animated_image().frames)[0], 4, 0, 0), kBlue);
}

// --- Files that cannot be decoded ---

TEST_F(ImageDecoderTest, MissingAndUnreadableFilesFailAndLeaveEmptyRecords) {
  const std::string good_png = WritePng("good.png", 1, 1, {kRed});
  const std::string good_gif = WriteTwoColourGif("good.gif", kRed, kBlue);
  std::vector<std::uint8_t> garbage(4096);
  for (std::size_t i = 0; i < garbage.size(); ++i) {
    garbage[i] = static_cast<std::uint8_t>((i * 2654435761u) >> 13);
  }
  ASSERT_TRUE(files_->WriteBytes("garbage.png", garbage));
  ASSERT_TRUE(files_->WriteBytes("empty.gif", {}));
  const std::vector<std::string> bad_paths = {files_->Path("missing.png"),
                                              files_->Path("garbage.png"),
                                              files_->Path("empty.gif"),
                                              files_->Path(""),
                                              std::string(),
                                              "\xFF\xFE not utf-8.png",
                                              files_->Path("nul") + std::string(1, '\0') + ".png"};
  for (const std::string& bad : bad_paths) {
    SCOPED_TRACE(bad);
    ASSERT_TRUE(decoder_->DecodeImage(good_png));
    ASSERT_TRUE(decoder_->DecodeAnimatedGif(good_gif));
    EXPECT_FALSE(decoder_->DecodeImage(bad));
    EXPECT_FALSE(decoder_->DecodeAnimatedGif(bad));
    const DecodedImage& still = decoder_->decoded_image();
    EXPECT_TRUE(still.path.empty() && still.pixels.empty() && still.width == 0 && still.height == 0);
    const AnimatedImage& animation = decoder_->animated_image();
    EXPECT_TRUE(animation.path.empty() && !animation.frames && animation.delays_ms.empty() &&
                animation.canvas_width == 0);
  }
  // A failed decode is tried again on the next request.
  const std::string late = files_->Path("late.png");
  EXPECT_FALSE(decoder_->DecodeImage(late));
  WritePng("late.png", 1, 1, {kBlue});
  ASSERT_TRUE(decoder_->DecodeImage(late));
  EXPECT_EQ(PixelAt(decoder_->decoded_image().pixels, 1, 0, 0), kBlue);
}

}  // namespace
}  // namespace native_live_window
