// Copies sequence parameter sets field by field. Fields have the names that ITU-T H.264, 7.3.2.1.1 and E.1,
// give them.
#include "relay/stream/h264/parameter_sets.h"

#include <algorithm>
#include <array>

#include "relay/stream/h264/bits.h"

namespace vlk::relay {
namespace {

constexpr std::uint32_t kParameterSetUnit = 7;
constexpr std::uint32_t kExtendedAspect = 255;
constexpr unsigned kLongestRefCycle = 255;
constexpr unsigned kMostCpbs = 32;

// The colours that the agent's conversion produces: sRGB primaries and transfer curve (ITU-T H.273), BT.601's
// matrix, limited range.
constexpr std::uint32_t kUnspecifiedFormat = 5;
constexpr std::uint32_t kBt709Primaries = 1;
constexpr std::uint32_t kSrgbTransfer = 13;
constexpr std::uint32_t kBt601Matrix = 6;

// The value of both log2_max_mv_length fields: no level allows motion vectors over 2^15 quarter pixels.
constexpr std::uint32_t kLongestVector = 15;

// Profiles whose parameter sets have the chroma fields.
constexpr std::array<std::uint32_t, 13> kHighProfiles = {100, 110, 122, 244, 44,  83, 86,
                                                         118, 128, 138, 139, 134, 135};

// Reads fields and writes each field unchanged.
class Copier {
 public:
  explicit Copier(std::span<const std::uint8_t> payload) : in(payload) {}

  std::uint32_t bits(unsigned count) {
    const std::uint32_t value = in.bits(count);
    out.bits(value, count);
    return value;
  }
  bool flag() { return bits(1) != 0; }
  std::uint32_t golomb() {
    const std::uint32_t value = in.golomb();
    out.golomb(value);
    return value;
  }

  BitReader in;
  BitWriter out;
};

void copy_scaling_list(Copier& copier, int size) {
  int last = 8;
  int next = 8;
  for (int i = 0; i < size && next != 0 && !copier.in.failed(); ++i) {
    const std::uint32_t code = copier.golomb();
    // In se(v), the codes 1, 2, 3, 4 mean 1, -1, 2, -2. H.264 adds the difference modulo 256, so a difference
    // that is out of range needs no check.
    const auto half = static_cast<int>(code / 2 % 256);
    next = (last + (code % 2 == 1 ? half + 1 : -half) + 256) % 256;
    if (next != 0) last = next;
  }
}

void copy_chroma(Copier& copier) {
  const std::uint32_t chroma_format_idc = copier.golomb();
  if (chroma_format_idc == 3) copier.bits(1);  // separate_colour_plane_flag
  copier.golomb();                             // bit_depth_luma_minus8
  copier.golomb();                             // bit_depth_chroma_minus8
  copier.bits(1);                              // qpprime_y_zero_transform_bypass_flag
  if (!copier.flag()) return;                  // seq_scaling_matrix_present_flag
  const int lists = chroma_format_idc == 3 ? 12 : 8;
  for (int i = 0; i < lists; ++i) {
    if (copier.flag()) copy_scaling_list(copier, i < 6 ? 16 : 64);
  }
}

// Copies the fields of the picture order. Returns false if a field is out of range.
bool copy_picture_order(Copier& copier) {
  const std::uint32_t pic_order_cnt_type = copier.golomb();
  if (pic_order_cnt_type > 2) return false;
  if (pic_order_cnt_type == 0) copier.golomb();  // log2_max_pic_order_cnt_lsb_minus4
  if (pic_order_cnt_type != 1) return true;
  copier.bits(1);   // delta_pic_order_always_zero_flag
  copier.golomb();  // offset_for_non_ref_pic
  copier.golomb();  // offset_for_top_to_bottom_field
  const std::uint32_t cycle = copier.golomb();
  if (cycle > kLongestRefCycle) return false;
  for (std::uint32_t i = 0; i < cycle; ++i)
    copier.golomb();  // offset_for_ref_frame
  return true;
}

void copy_size(Copier& copier) {
  copier.golomb();                     // pic_width_in_mbs_minus1
  copier.golomb();                     // pic_height_in_map_units_minus1
  if (!copier.flag()) copier.bits(1);  // frame_mbs_only_flag, mb_adaptive_frame_field_flag
  copier.bits(1);                      // direct_8x8_inference_flag
  if (!copier.flag()) return;          // frame_cropping_flag
  for (int i = 0; i < 4; ++i)
    copier.golomb();
}

bool copy_hrd(Copier& copier) {
  if (!copier.flag()) return true;
  const std::uint32_t cpb_cnt = copier.golomb() + 1;
  if (cpb_cnt > kMostCpbs) return false;
  copier.bits(8);  // bit_rate_scale, cpb_size_scale
  for (std::uint32_t i = 0; i < cpb_cnt; ++i) {
    copier.golomb();
    copier.golomb();
    copier.bits(1);
  }
  copier.bits(20);  // the lengths of four other fields
  return true;
}

void write_colours(BitWriter& out) {
  out.bits(1, 1);  // video_signal_type_present_flag
  out.bits(kUnspecifiedFormat, 3);
  out.bits(0, 1);  // video_full_range_flag
  out.bits(1, 1);  // colour_description_present_flag
  out.bits(kBt709Primaries, 8);
  out.bits(kSrgbTransfer, 8);
  out.bits(kBt601Matrix, 8);
}

void skip_colours(BitReader& in) {
  if (in.bits(1) == 0) return;
  in.bits(4);
  if (in.bits(1) != 0) in.bits(24);
}

// Copies the fields between the colours and the bitstream restriction. Returns false if a field is out of
// range.
bool copy_timing(Copier& copier) {
  if (copier.flag()) {  // chroma_loc_info_present_flag
    copier.golomb();
    copier.golomb();
  }
  if (copier.flag()) {  // timing_info_present_flag
    copier.bits(32);
    copier.bits(32);
    copier.bits(1);
  }
  const std::size_t before = copier.in.left();
  if (!copy_hrd(copier)) return false;  // nal_hrd_parameters
  if (!copy_hrd(copier)) return false;  // vcl_hrd_parameters
  const bool any_hrd = before - copier.in.left() > 2;
  if (any_hrd) copier.bits(1);  // low_delay_hrd_flag
  copier.bits(1);               // pic_struct_present_flag
  return true;
}

void write_in_order(BitWriter& out, std::uint32_t max_num_ref_frames) {
  out.golomb(0);  // max_num_reorder_frames
  out.golomb(max_num_ref_frames);
}

void write_restriction(BitWriter& out, std::uint32_t max_num_ref_frames) {
  out.bits(1, 1);  // bitstream_restriction_flag
  out.bits(1, 1);  // motion_vectors_over_pic_boundaries_flag
  out.golomb(0);   // max_bytes_per_pic_denom: no limit
  out.golomb(0);   // max_bits_per_mb_denom: no limit
  out.golomb(kLongestVector);
  out.golomb(kLongestVector);
  write_in_order(out, max_num_ref_frames);
}

void copy_restriction(Copier& copier, bool in_order, std::uint32_t max_num_ref_frames) {
  if (copier.in.bits(1) == 0) {
    if (in_order) {
      write_restriction(copier.out, max_num_ref_frames);
    } else {
      copier.out.bits(0, 1);
    }
    return;
  }
  copier.out.bits(1, 1);
  copier.bits(1);
  for (int i = 0; i < 4; ++i)
    copier.golomb();
  const std::uint32_t max_num_reorder_frames = copier.in.golomb();
  const std::uint32_t max_dec_frame_buffering = copier.in.golomb();
  if (in_order) return write_in_order(copier.out, max_num_ref_frames);
  copier.out.golomb(max_num_reorder_frames);
  copier.out.golomb(max_dec_frame_buffering);
}

bool copy_vui(Copier& copier, bool in_order, std::uint32_t max_num_ref_frames) {
  if (copier.flag() && copier.bits(8) == kExtendedAspect) copier.bits(32);  // aspect_ratio_info
  if (copier.flag()) copier.bits(1);                                        // overscan_info
  skip_colours(copier.in);
  write_colours(copier.out);
  if (!copy_timing(copier)) return false;
  copy_restriction(copier, in_order, max_num_ref_frames);
  return true;
}

void write_vui(BitWriter& out, bool in_order, std::uint32_t max_num_ref_frames) {
  out.bits(0, 2);  // aspect_ratio_info_present_flag, overscan_info_present_flag
  write_colours(out);
  out.bits(0, 5);  // chroma location, timing, two HRDs, pic_struct_present_flag
  if (in_order) {
    write_restriction(out, max_num_ref_frames);
  } else {
    out.bits(0, 1);
  }
}

// True if all is read except the stop bit and its padding.
bool at_end(BitReader& in) {
  if (in.failed() || in.left() == 0 || in.left() > 8) return false;
  const auto left = static_cast<unsigned>(in.left());
  return in.bits(left) == 1u << (left - 1);
}

}  // namespace

std::optional<Bytes> complete_parameter_set(std::span<const std::uint8_t> unit, bool in_order) {
  const Bytes payload = without_emulation_bytes(unit);
  Copier copier(payload);
  if ((copier.bits(8) & 0x1f) != kParameterSetUnit) return std::nullopt;
  const std::uint32_t profile_idc = copier.bits(8);
  copier.bits(16);  // constraint flags, level_idc
  copier.golomb();  // seq_parameter_set_id
  if (std::ranges::find(kHighProfiles, profile_idc) != kHighProfiles.end()) copy_chroma(copier);
  copier.golomb();  // log2_max_frame_num_minus4
  if (!copy_picture_order(copier)) return std::nullopt;
  const std::uint32_t max_num_ref_frames = copier.golomb();
  copier.bits(1);  // gaps_in_frame_num_value_allowed_flag
  copy_size(copier);
  const bool vui_parameters_present_flag = copier.in.bits(1) != 0;
  copier.out.bits(1, 1);
  if (!vui_parameters_present_flag) {
    write_vui(copier.out, in_order, max_num_ref_frames);
  } else if (!copy_vui(copier, in_order, max_num_ref_frames)) {
    return std::nullopt;
  }
  if (!at_end(copier.in)) return std::nullopt;
  return with_emulation_bytes(copier.out.finish());
}

}  // namespace vlk::relay
