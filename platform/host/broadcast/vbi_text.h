// Text of the pages that libzvbi decodes.
#pragma once

#include <libzvbi.h>

#include <memory>
#include <string>

namespace lumio::broadcast {

struct VbiDecoderDeleter {
  void operator()(vbi_decoder *decoder) const { vbi_decoder_delete(decoder); }
};
using VbiDecoder = std::unique_ptr<vbi_decoder, VbiDecoderDeleter>;

// A row in UTF-8 without the spaces at its end, and unless `indented` without those at its beginning. Hidden and
// graphic characters count as spaces.
std::string TextOfRow(const vbi_page &page, int row, bool indented = false);

// The rows from `first` to `last` that are not empty, joined by '\n'.
std::string TextOfRows(const vbi_page &page, int first, int last);

// The rows from `first` to `last` as they stand, each ended by '\n'.
std::string TextOfPage(const vbi_page &page, int first, int last);

} // namespace lumio::broadcast
