#include "convert/numeric_converters.h"

#include "convert/converter_frame.h"
#include "lumo/image/surface_data.h"

namespace lumo::image {
namespace {

using numeric::Byte;
using RowFunction = void (*)(const Byte*, Byte*, std::size_t) noexcept;

constexpr bool ByteDivisionMatchesDouble() {
  for (int b = 0; b < 256; ++b) {
    const double exact = static_cast<double>(b) / 255.0;
    if (numeric::ByteToFloat(static_cast<Byte>(b)) != static_cast<float>(exact)) return false;
  }
  return true;
}
static_assert(ByteDivisionMatchesDouble(), "byte to float must equal the value divided in double");

// A row function as a type, so that ConvertRows inlines it instead of calling
// through a pointer.
template <RowFunction Row>
struct Kernel {
  void operator()(const Byte* src, Byte* dst, std::size_t width) const noexcept { Row(src, dst, width); }
};

// The kernels read SourceBytes and write TargetBytes per pixel.
template <unsigned long long SourceBytes, unsigned long long TargetBytes, typename Row>
std::shared_ptr<SurfaceData> Run(const SurfaceData* source, const PixelFormatDescriptor& target, Row row) {
  return detail::ConvertWith(source, target, SourceBytes, TargetBytes, row);
}

}  // namespace

template <int Count>
std::shared_ptr<SurfaceData> ConverterUByteToUShort<Count>::Convert(const SurfaceData* source,
                                                                    const PixelFormatDescriptor& target) {
  return Run<Count, 2 * Count>(source, target, Kernel<numeric::RowUByteToUShort<Count>>{});
}

std::shared_ptr<SurfaceData> ConverterShortToUbyte::Convert(const SurfaceData* source,
                                                            const PixelFormatDescriptor& target) {
  return signed_source_ ? Run<2, 1>(source, target, Kernel<numeric::RowShortToUbyte<true>>{})
                        : Run<2, 1>(source, target, Kernel<numeric::RowShortToUbyte<false>>{});
}

std::shared_ptr<SurfaceData> ConverterShortToHalf::Convert(const SurfaceData* source,
                                                           const PixelFormatDescriptor& target) {
  return signed_source_ ? Run<2, 2>(source, target, Kernel<numeric::RowShortToHalf<true>>{})
                        : Run<2, 2>(source, target, Kernel<numeric::RowShortToHalf<false>>{});
}

std::shared_ptr<SurfaceData> Converter2ShortTo3Ubyte::Convert(const SurfaceData* source,
                                                              const PixelFormatDescriptor& target) {
  return signed_source_ ? Run<4, 3>(source, target, Kernel<numeric::Row2ShortTo3Ubyte<true>>{})
                        : Run<4, 3>(source, target, Kernel<numeric::Row2ShortTo3Ubyte<false>>{});
}

std::shared_ptr<SurfaceData> Converter2ShortTo2Half::Convert(const SurfaceData* source,
                                                             const PixelFormatDescriptor& target) {
  return signed_source_ ? Run<4, 4>(source, target, Kernel<numeric::Row2ShortTo2Half<true>>{})
                        : Run<4, 4>(source, target, Kernel<numeric::Row2ShortTo2Half<false>>{});
}

std::shared_ptr<SurfaceData> Converter3UbyteTo2Short::Convert(const SurfaceData* source,
                                                              const PixelFormatDescriptor& target) {
  return signed_target_ ? Run<3, 4>(source, target, Kernel<numeric::Row3UbyteTo2Short<true>>{})
                        : Run<3, 4>(source, target, Kernel<numeric::Row3UbyteTo2Short<false>>{});
}

std::shared_ptr<SurfaceData> ConverterHalfToShort::Convert(const SurfaceData* source,
                                                           const PixelFormatDescriptor& target) {
  return Run<2, 2>(source, target, Kernel<numeric::RowHalfToShort>{});
}

std::shared_ptr<SurfaceData> ConverterHalfToFloat::Convert(const SurfaceData* source,
                                                           const PixelFormatDescriptor& target) {
  return Run<2, 4>(source, target, Kernel<numeric::RowHalfToFloat>{});
}

std::shared_ptr<SurfaceData> ConverterFloatToHalf::Convert(const SurfaceData* source,
                                                           const PixelFormatDescriptor& target) {
  return Run<4, 2>(source, target, Kernel<numeric::RowFloatToHalf>{});
}

std::shared_ptr<SurfaceData> Converter3HalfTo3Short::Convert(const SurfaceData* source,
                                                             const PixelFormatDescriptor& target) {
  return Run<6, 6>(source, target, Kernel<numeric::Row3HalfTo3Short>{});
}

std::shared_ptr<SurfaceData> Converter3ShortTo3Half::Convert(const SurfaceData* source,
                                                             const PixelFormatDescriptor& target) {
  return Run<6, 6>(source, target, Kernel<numeric::Row3ShortTo3Half>{});
}

std::shared_ptr<SurfaceData> Converter3ShortTo3Byte::Convert(const SurfaceData* source,
                                                             const PixelFormatDescriptor& target) {
  return Run<6, 3>(source, target, Kernel<numeric::Row3ShortTo3Byte>{});
}

std::shared_ptr<SurfaceData> Converter4ShortTo4Byte::Convert(const SurfaceData* source,
                                                             const PixelFormatDescriptor& target) {
  return Run<8, 4>(source, target, Kernel<numeric::Row4ShortTo4Byte>{});
}

template <typename F>
std::shared_ptr<SurfaceData> Converter4ByteTo4Float<F>::Convert(const SurfaceData* source,
                                                                const PixelFormatDescriptor& target) {
  return Run<4, 4 * sizeof(F)>(source, target, Kernel<numeric::Row4ByteTo4Float<F>>{});
}

template <typename F>
std::shared_ptr<SurfaceData> Converter4FloatTo4Byte<F>::Convert(const SurfaceData* source,
                                                                const PixelFormatDescriptor& target) {
  return Run<4 * sizeof(F), 4>(source, target, Kernel<numeric::Row4FloatTo4Byte<F>>{});
}

std::shared_ptr<SurfaceData> Converter4HalfTo4Float::Convert(const SurfaceData* source,
                                                             const PixelFormatDescriptor& target) {
  return Run<8, 16>(source, target, Kernel<numeric::Row4HalfTo4Float>{});
}

std::shared_ptr<SurfaceData> Converter4FloatTo4Half::Convert(const SurfaceData* source,
                                                             const PixelFormatDescriptor& target) {
  return Run<16, 8>(source, target, Kernel<numeric::Row4FloatTo4Half>{});
}

std::shared_ptr<SurfaceData> Converter3FloatTo4Float::Convert(const SurfaceData* source,
                                                              const PixelFormatDescriptor& target) {
  return Run<12, 16>(source, target, Kernel<numeric::Row3FloatTo4Float>{});
}

std::shared_ptr<SurfaceData> Converter4FloatTo3Float::Convert(const SurfaceData* source,
                                                              const PixelFormatDescriptor& target) {
  return Run<16, 12>(source, target, Kernel<numeric::Row4FloatTo3Float>{});
}

template <typename S, typename U, int Count>
std::shared_ptr<SurfaceData> ConverterSigned<S, U, Count>::Convert(const SurfaceData* source,
                                                                   const PixelFormatDescriptor& target) {
  constexpr unsigned long long bytes = Count * sizeof(U);
  return Run<bytes, bytes>(source, target, Kernel<numeric::RowSigned<U, Count>>{});
}

template <typename F, int Count>
std::shared_ptr<SurfaceData> ConverterFloatToUnormFloat<F, Count>::Convert(const SurfaceData* source,
                                                                           const PixelFormatDescriptor& target) {
  constexpr unsigned long long bytes = Count * sizeof(F);
  return Run<bytes, bytes>(source, target, Kernel<numeric::RowFloatToUnormFloat<F, Count>>{});
}

template <typename F, int Count>
std::shared_ptr<SurfaceData> ConverterUnormFloatToFloat<F, Count>::Convert(const SurfaceData* source,
                                                                           const PixelFormatDescriptor& target) {
  constexpr unsigned long long bytes = Count * sizeof(F);
  return Run<bytes, bytes>(source, target, Kernel<numeric::RowUnormFloatToFloat<F, Count>>{});
}

template class ConverterUByteToUShort<1>;
template class ConverterUByteToUShort<2>;
template class ConverterUByteToUShort<3>;
template class ConverterUByteToUShort<4>;
template class Converter4ByteTo4Float<float>;
template class Converter4ByteTo4Float<half_float::half>;
template class Converter4FloatTo4Byte<float>;
template class Converter4FloatTo4Byte<half_float::half>;
template class ConverterSigned<signed char, unsigned char, 1>;
template class ConverterSigned<signed char, unsigned char, 2>;
template class ConverterSigned<signed char, unsigned char, 4>;
template class ConverterSigned<short, unsigned short, 1>;
template class ConverterSigned<short, unsigned short, 2>;
template class ConverterSigned<short, unsigned short, 4>;
template class ConverterFloatToUnormFloat<float, 4>;
template class ConverterFloatToUnormFloat<half_float::half, 4>;
template class ConverterUnormFloatToFloat<float, 4>;
template class ConverterUnormFloatToFloat<half_float::half, 4>;

}  // namespace lumo::image
