#include "convert/builtin_conversions.h"

#include <array>
#include <initializer_list>
#include <utility>

#include "convert/channel_converters.h"
#include "convert/numeric_converters.h"

namespace lumo::image::detail {
namespace {

using namespace lumo::image::formats;
using Pairs = std::initializer_list<std::pair<PixelFormatDescriptor, PixelFormatDescriptor>>;

class Registrar {
 public:
  Registrar(AddConversion add, void* context) : add_(add), context_(context) {}

  // One converter object serves every pair of its line.
  template <typename T, typename... Args>
  void Add(Pairs pairs, Args&&... args) {
    const std::shared_ptr<Converter> converter = std::make_shared<T>(std::forward<Args>(args)...);
    for (const auto& [from, to] : pairs) add_(context_, from, to, converter);
  }

 private:
  AddConversion add_;
  void* context_;
};

using UC = unsigned char;
using US = unsigned short;
using Half = half_float::half;

}  // namespace

void RegisterBuiltInConversions(AddConversion add, void* context) {
  Registrar r(add, context);

  // Channel reordering, alpha added or dropped.
  r.Add<ConverterMSBAlpha>({{R8G8B8, A8R8G8B8}, {B8G8R8, A8B8G8R8}, {R8G8B8, X8R8G8B8}, {B8G8R8, X8B8G8R8}}, false);
  r.Add<ConverterMSBAlpha>({{R8G8B8, A8B8G8R8}, {B8G8R8, A8R8G8B8}, {R8G8B8, X8B8G8R8}, {B8G8R8, X8R8G8B8}}, true);
  r.Add<ConverterStripMSBAlpha>({{A8R8G8B8, R8G8B8}, {A8B8G8R8, B8G8R8}}, false);
  r.Add<ConverterStripMSBAlpha>({{A8R8G8B8, B8G8R8}, {A8B8G8R8, R8G8B8}}, true);
  r.Add<ConverterRedirectChannel>({{A8R8G8B8, X8R8G8B8}, {A8B8G8R8, X8B8G8R8}}, std::array<int, 4>{0, 1, 2, 3}, 4);
  r.Add<ConverterRedirectChannel>({{A8R8G8B8, X8B8G8R8}, {A8B8G8R8, X8R8G8B8}}, std::array<int, 4>{0, 3, 2, 1}, 4);
  r.Add<ConverterRedirectChannel>({{X8R8G8B8, A8R8G8B8}, {X8B8G8R8, A8B8G8R8}}, std::array<int, 4>{-1, 1, 2, 3}, 4);
  r.Add<ConverterRedirectChannel>({{X8R8G8B8, A8B8G8R8}, {X8B8G8R8, A8R8G8B8}}, std::array<int, 4>{-1, 3, 2, 1}, 4);
  r.Add<ConverterRedirectChannel>({{X8R8G8B8, R8G8B8}, {X8B8G8R8, B8G8R8}}, std::array<int, 4>{1, 2, 3, -1}, 3);
  r.Add<ConverterRedirectChannel>({{X8R8G8B8, B8G8R8}, {X8B8G8R8, R8G8B8}}, std::array<int, 4>{3, 2, 1, -1}, 3);
  r.Add<ConverterSwapChannel>({{R8G8B8, B8G8R8}, {B8G8R8, R8G8B8}}, 3, 0, 2);
  r.Add<ConverterSwapChannel>({{A8R8G8B8, A8B8G8R8}, {A8B8G8R8, A8R8G8B8}, {X8R8G8B8, X8B8G8R8}, {X8B8G8R8, X8R8G8B8}},
                              4, 1, 3);
  r.Add<ConverterSwapChannelOf16BitsChannel>(
      {{G16R16, R16G16}, {R16G16, G16R16}, {R16sG16s, G16sR16s}, {G16sR16s, R16sG16s}}, 2, 0, 1);
  r.Add<ConverterSwapChannelOf16BitsChannel>(
      {{B16G16R16, R16G16B16}, {R16G16B16, B16G16R16}, {B16fG16fR16f, R16fG16fB16f}, {R16fG16fB16f, B16fG16fR16f}}, 3,
      0, 2);
  r.Add<ConverterSwapChannelOf16BitsChannel>({{A16B16G16R16, A16R16G16B16},
                                              {A16R16G16B16, A16B16G16R16},
                                              {A16fB16fG16fR16f, A16fR16fG16fB16f},
                                              {A16fR16fG16fB16f, A16fB16fG16fR16f}},
                                             4, 1, 3);
  r.Add<ConverterRevert8888>({{R8G8B8A8, A8B8G8R8}, {A8B8G8R8, R8G8B8A8}});
  r.Add<ConverterRevert4444>({{R4G4B4A4, A4B4G4R4}, {A4B4G4R4, R4G4B4A4}});
  r.Add<ConverterShift<US>>({{R4G4B4A4, A4R4G4B4}}, -4);
  r.Add<ConverterShift<US>>({{A4R4G4B4, R4G4B4A4}}, 4);

  // Packed formats.
  r.Add<Converter4444To8888>({{A4B4G4R4, A8B8G8R8}, {A4R4G4B4, A8R8G8B8}, {R4G4B4A4, R8G8B8A8}, {B4G4R4A4, B8G8R8A8}});
  r.Add<Converter565To888>({{R5G6B5, R8G8B8}, {B5G6R5, B8G8R8}});
  r.Add<Converter1555To8888>({{A1R5G5B5, A8R8G8B8}, {A1B5G5R5, A8B8G8R8}}, false);
  r.Add<Converter1555To8888>({{A1R5G5B5, A8B8G8R8}, {A1B5G5R5, A8R8G8B8}}, true);

  // Single channels widened, sub-byte alpha.
  r.Add<Converter8To8888>(
      {{A8, A8B8G8R8}, {A8, A8R8G8B8}, {L8, A8B8G8R8}, {L8, A8R8G8B8}, {R8, A8B8G8R8}, {R8, A8R8G8B8}});
  r.Add<Converter8To888>({{A8, B8G8R8}, {A8, R8G8B8}, {L8, B8G8R8}, {L8, R8G8B8}, {R8, B8G8R8}, {R8, R8G8B8}});
  r.Add<ConverterA8X8ToA8X8X8X8>({{A8L8, A8R8G8B8}, {A8L8, A8B8G8R8}});
  r.Add<Converter1To8>({{A1, A8}});
  r.Add<Converter2To8>({{A2, A8}});
  r.Add<Converter4To8>({{A4, A8}});
  r.Add<Converter1To8888>({{A1, A8B8G8R8}, {A1, A8R8G8B8}});

  // Channel selection.
  r.Add<ConverterSelect<UC, 0, 3>>({{R8G8B8, R8}});
  r.Add<ConverterSelect<UC, 2, 3>>({{B8G8R8, R8}});
  r.Add<ConverterSelect<UC, 1, 3>>({{R8G8B8, G8}, {B8G8R8, G8}});
  r.Add<ConverterSelect<UC, 0, 4>>({{A8B8G8R8, A8}, {A8R8G8B8, A8}});
  r.Add<ConverterSelect<UC, 1, 4>>({{A8R8G8B8, R8}});
  r.Add<ConverterSelect<UC, 3, 4>>({{A8B8G8R8, R8}});
  r.Add<ConverterSelect<UC, 2, 4>>({{A8R8G8B8, G8}, {A8B8G8R8, G8}});
  r.Add<ConverterSelect<US, 0, 3>>({{R16G16B16, R16}});
  r.Add<ConverterSelect<US, 1, 3>>({{R16G16B16, G16}, {B16G16R16, G16}});
  r.Add<ConverterSelect<US, 2, 3>>({{B16G16R16, R16}});
  r.Add<ConverterSelect<US, 0, 4>>({{A16B16G16R16, A16}, {A16R16G16B16, A16}});
  r.Add<ConverterSelect<US, 1, 4>>({{A16R16G16B16, R16}});
  r.Add<ConverterSelect<US, 2, 4>>({{A16R16G16B16, G16}});
  r.Add<ConverterSelect<US, 3, 4>>({{A16B16G16R16, R16}});
  r.Add<ConverterSelect2<UC, 0, 1, 3>>({{R8G8B8, R8G8}});
  r.Add<ConverterSelect2<UC, 1, 0, 3>>({{R8G8B8, G8R8}});
  r.Add<ConverterSelect2<UC, 1, 2, 3>>({{B8G8R8, G8R8}});
  r.Add<ConverterSelect2<UC, 2, 1, 3>>({{B8G8R8, R8G8}});
  r.Add<ConverterSelect2<UC, 1, 2, 4>>({{A8R8G8B8, R8G8}});
  r.Add<ConverterSelect2<UC, 2, 1, 4>>({{A8R8G8B8, G8R8}});
  r.Add<ConverterSelect2<UC, 2, 3, 4>>({{A8B8G8R8, G8R8}});
  r.Add<ConverterSelect2<UC, 3, 2, 4>>({{A8B8G8R8, R8G8}});
  r.Add<ConverterSelect2<US, 0, 1, 3>>({{R16G16B16, R16G16}});
  r.Add<ConverterSelect2<US, 1, 0, 3>>({{R16G16B16, G16R16}});
  r.Add<ConverterSelect2<US, 1, 2, 3>>({{B16G16R16, G16R16}});
  r.Add<ConverterSelect2<US, 2, 1, 3>>({{B16G16R16, R16G16}});
  r.Add<ConverterSelect2<US, 1, 2, 4>>({{A16R16G16B16, R16G16}});
  r.Add<ConverterSelect2<US, 2, 1, 4>>({{A16R16G16B16, G16R16}});
  r.Add<ConverterSelect2<US, 2, 3, 4>>({{A16B16G16R16, G16R16}});
  r.Add<ConverterSelect2<US, 3, 2, 4>>({{A16B16G16R16, R16G16}});

  // Gray.
  r.Add<ConverterGray<UC, 2, 1, 0, 0, -1>>({{R8G8B8, L8}});
  r.Add<ConverterGray<UC, 0, 1, 2, 0, -1>>({{B8G8R8, L8}});
  r.Add<ConverterGray<US, 2, 1, 0, 0, -1>>({{R16G16B16, L16}});
  r.Add<ConverterGray<US, 0, 1, 2, 0, -1>>({{B16G16R16, L16}});
  r.Add<ConverterGray<UC, 2, 1, 0, 3, 1>>({{A8R8G8B8, A8L8}});
  r.Add<ConverterGray<UC, 0, 1, 2, 3, 1>>({{A8B8G8R8, A8L8}});
  r.Add<ConverterGray<US, 2, 1, 0, 3, 1>>({{A16R16G16B16, A16L16}});
  r.Add<ConverterGray<US, 0, 1, 2, 3, 1>>({{A16B16G16R16, A16L16}});

  // 8 and 16 bits.
  r.Add<ConverterUByteToUShort<1>>({{A8, A16}});
  r.Add<ConverterUByteToUShort<2>>({{A8L8, G16R16}, {G8R8, G16R16}});
  r.Add<ConverterUByteToUShort<3>>({{B8G8R8, B16G16R16}, {R8G8B8, R16G16B16}});
  r.Add<ConverterUByteToUShort<4>>({{A8B8G8R8, A16B16G16R16}, {A8R8G8B8, A16R16G16B16}});
  r.Add<ConverterShortToUbyte>({{R16, R8}, {A16, A8}}, false);
  r.Add<ConverterShortToUbyte>({{R16s, R8}, {A16s, A8}}, true);
  r.Add<Converter3ShortTo3Byte>({{B16G16R16, B8G8R8}, {R16G16B16, R8G8B8}});
  r.Add<Converter4ShortTo4Byte>(
      {{A16B16G16R16, A8B8G8R8}, {A16R16G16B16, A8R8G8B8}, {R16G16B16A16, R8G8B8A8}, {B16G16R16A16, B8G8R8A8}});
  r.Add<Converter2ShortTo3Ubyte>({{G16R16, B8G8R8}}, false);
  r.Add<Converter2ShortTo3Ubyte>({{G16sR16s, B8G8R8}}, true);
  r.Add<Converter3UbyteTo2Short>({{B8G8R8, G16R16}}, false);
  r.Add<Converter3UbyteTo2Short>({{B8G8R8, G16sR16s}}, true);

  // Integers and floats.
  r.Add<ConverterShortToHalf>({{R16, R16f}, {A16, R16f}}, false);
  r.Add<ConverterShortToHalf>({{R16s, R16f}, {A16s, R16f}}, true);
  r.Add<ConverterHalfToShort>({{R16f, R16}});
  r.Add<ConverterHalfToFloat>({{R16f, R32f}});
  r.Add<ConverterFloatToHalf>({{R32f, R16f}});
  r.Add<Converter2ShortTo2Half>({{G16R16, G16fR16f}}, false);
  r.Add<Converter2ShortTo2Half>({{G16sR16s, G16fR16f}}, true);
  r.Add<Converter3HalfTo3Short>({{B16fG16fR16f, B16G16R16}, {R16fG16fB16f, R16G16B16}});
  r.Add<Converter3ShortTo3Half>({{B16G16R16, B16fG16fR16f}, {R16G16B16, R16fG16fB16f}});
  r.Add<Converter4FloatTo4Byte<Half>>({{A16fB16fG16fR16f, A8B8G8R8},
                                       {A16fR16fG16fB16f, A8R8G8B8},
                                       {R16fG16fB16fA16f, R8G8B8A8},
                                       {B16fG16fR16fA16f, B8G8R8A8}});
  r.Add<Converter4FloatTo4Byte<float>>({{A32fB32fG32fR32f, A8B8G8R8}, {A32fR32fG32fB32f, A8R8G8B8}});
  r.Add<Converter4ByteTo4Float<float>>({{A8B8G8R8, A32fB32fG32fR32f}, {A8R8G8B8, A32fR32fG32fB32f}});
  r.Add<Converter4ByteTo4Float<Half>>({{A8B8G8R8, A16fB16fG16fR16f}, {A8R8G8B8, A16fR16fG16fB16f}});
  r.Add<Converter4HalfTo4Float>({{A16fB16fG16fR16f, A32fB32fG32fR32f}, {A16fR16fG16fB16f, A32fR32fG32fB32f}});
  r.Add<Converter4FloatTo4Half>({{A32fB32fG32fR32f, A16fB16fG16fR16f}, {A32fR32fG32fB32f, A16fR16fG16fB16f}});
  r.Add<Converter3FloatTo4Float>({{R32fG32fB32f, A32fR32fG32fB32f}, {B32fG32fR32f, A32fB32fG32fR32f}});
  r.Add<Converter4FloatTo3Float>({{A32fB32fG32fR32f, B32fG32fR32f}, {A32fR32fG32fB32f, R32fG32fB32f}});
  r.Add<ConverterFloatToUnormFloat<float, 4>>(
      {{A32fB32fG32fR32f, u_A32fB32fG32fR32f}, {A32fR32fG32fB32f, u_A32fR32fG32fB32f}});
  r.Add<ConverterUnormFloatToFloat<float, 4>>(
      {{u_A32fB32fG32fR32f, A32fB32fG32fR32f}, {u_A32fR32fG32fB32f, A32fR32fG32fB32f}});
  r.Add<ConverterFloatToUnormFloat<Half, 4>>(
      {{A16fB16fG16fR16f, u_A16fB16fG16fR16f}, {A16fR16fG16fB16f, u_A16fR16fG16fB16f}});
  r.Add<ConverterUnormFloatToFloat<Half, 4>>(
      {{u_A16fB16fG16fR16f, A16fB16fG16fR16f}, {u_A16fR16fG16fB16f, A16fR16fG16fB16f}});

  // Signed and unsigned: one converter serves both directions.
  r.Add<ConverterSigned<signed char, UC, 1>>({{A8s, A8}, {R8s, R8}, {R8, R8s}, {A8, A8s}});
  r.Add<ConverterSigned<signed char, UC, 2>>({{R8sG8s, R8G8}, {G8sR8s, G8R8}, {R8G8, R8sG8s}, {G8R8, G8sR8s}});
  r.Add<ConverterSigned<signed char, UC, 4>>(
      {{A8sB8sG8sR8s, A8B8G8R8}, {A8sR8sG8sB8s, A8R8G8B8}, {A8B8G8R8, A8sB8sG8sR8s}, {A8R8G8B8, A8sR8sG8sB8s}});
  r.Add<ConverterSigned<short, US, 1>>({{A16s, A16}, {R16s, R16}, {R16, R16s}, {A16, A16s}});
  r.Add<ConverterSigned<short, US, 2>>(
      {{R16sG16s, R16G16}, {G16sR16s, G16R16}, {R16G16, R16sG16s}, {G16R16, G16sR16s}});
  r.Add<ConverterSigned<short, US, 4>>({{A16sB16sG16sR16s, A16B16G16R16},
                                        {A16sR16sG16sB16s, A16R16G16B16},
                                        {A16B16G16R16, A16sB16sG16sR16s},
                                        {A16R16G16B16, A16sR16sG16sB16s}});

  // sRGB.
  r.Add<ConverterSRGBToRGB>(
      {{s_A8B8G8R8, A8B8G8R8}, {s_A8R8G8B8, A8R8G8B8}, {s_X8R8G8B8, X8R8G8B8}, {s_R8G8B8A8, R8G8B8A8}});
  r.Add<ConverterRGBToSRGB>(
      {{A8B8G8R8, s_A8B8G8R8}, {A8R8G8B8, s_A8R8G8B8}, {X8R8G8B8, s_X8R8G8B8}, {R8G8B8A8, s_R8G8B8A8}});

  // Compressed data is only relabelled, never decoded.
  r.Add<ConverterReinterpret>({{DXT1, DXT1_A1}, {DXT1_A1, DXT1}});
}

}  // namespace lumo::image::detail
