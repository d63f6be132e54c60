// SPDX-License-Identifier: Apache-2.0
#include "picture/stroke_font.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

namespace orva {
namespace {

/// A letter is drawn with a round pen along strokes, on a grid of digits: x to the right from 0 to 4, y down:
/// 0 the top of capitals, 2 the top of small letters, 6 the baseline, 8 the lowest descender. A stroke is a
/// sequence of points "xyxyxy"; a blank lifts the pen; a point given twice is a dot.
constexpr int kFirst = ' ';
// clang-format off
constexpr std::array<const char*, 97> kGlyphs = {
    "", "2024 2626", "1012 3032",                                    // blank ! "
    "1016 3036 0242 0444", "413010010213334445361605 2026",          // # $
    "0640 0010110100 3545463635", "46112030310415264400",            // % &
    "2022", "30212536", "10212516",                                  // ' ( )
    "2024 0143 4103", "2125 0343", "2617", "1333", "2626", "0640",   // * + , - . /
    "103041453616050110", "112026 1636",                             // 0 1
    "01103041420646", "01103041423313 334445361605",                 // 2 3
    "36300444", "400002324345361605",                                // 4 5
    "413010010516364544331304", "004016",                            // 6 7
    "103041423313020110 133344453616050413",                         // 8
    "051636454130100102133342",                                      // 9
    "2323 2626", "2323 2617", "410345", "0242 0444", "014305",       // : ; < = >
    "01103041422324 2626", "44331304152534 4441301001051636",        // ? @
    "062046 1434", "06003041423303 3344453606", "4130100105163645",  // A B C
    "06002042442606", "40000646 0333", "400006 0333",                // D E F
    "41301001051636454323", "0006 4046 0343", "1030 2026 1636",      // G H I
    "4045361605", "0006 4003 1246", "000646",                        // J K L
    "0600234046", "06004640", "103041453616050110",                  // M N O
    "06003041423303", "103041453616050110 2446",                     // P Q
    "06003041423303 2346", "413010010213334445361605",               // R S
    "0040 2026", "000516364540", "002640", "0016233640",             // T U V W
    "0046 4006", "002340 2326", "00400646",                          // X Y Z
    "30202636", "0046", "10202616", "022042", "0747", "1021",        // [ backslash ] ^ _ `
    "12324346 441405163645", "0006 0312324345361605",                // a b
    "4332120305163645", "4046 4332120305163645",                     // c d
    "04444332120305163645", "30201116 0232",                         // e f
    "4247381807 4332120305163645", "0006 0312324346",                // g h
    "2226 2020", "22271808 2020", "0006 4205 1446", "2026",          // i j k l
    "0206 03122326 23324346", "0206 0312324346",                     // m n
    "123243453616050312", "0208 0312324345361605",                   // o p
    "4248 4332120305163645", "0206 031232",                          // q r
    "43321203143445361605", "10152636 0232", "0205163645 4246",      // s t u
    "022642", "0216243642", "0246 4206", "0226 4218", "02420646",    // v w x y z
    "30212213242536", "2026", "10212233242516", "0413243344",        // { | } ~
    "1021120110", "2323",                                            // degree sign, middle dot
};
// clang-format on
constexpr const char* kBox = "0040460600";
constexpr std::size_t kDegree = 95;
constexpr std::size_t kMiddleDot = 96;

constexpr float kGrid = 6.0F;   ///< grid units in the height of a capital letter
constexpr float kGap = 1.7F;    ///< between letters
constexpr float kBlank = 1.2F;  ///< width of a blank, gaps not counted
constexpr float kPen = 0.78F;   ///< regular stroke
constexpr float kDot = 0.6F;    ///< least width of a letter
constexpr float kDigit = 4.0F;  ///< digits all have one width, so that numbers line up

struct Glyph {
  const char* strokes;
  float left;
  float width;
};

Glyph MakeGlyph(const char* strokes, bool is_digit) {
  if (*strokes == '\0') {
    return {strokes, 0.0F, kBlank};
  }
  char low = '9';
  char high = '0';
  for (const char* c = strokes; *c != '\0'; c += (*c == ' ' ? 1 : 2)) {
    if (*c != ' ') {
      low = std::min(low, *c);
      high = std::max(high, *c);
    }
  }
  const float left = static_cast<float>(low - '0') - (low == high ? kDot / 2.0F : 0.0F);
  const auto width = std::max(static_cast<float>(high - low), kDot);
  return is_digit ? Glyph{strokes, left - (kDigit - width) / 2.0F, kDigit} : Glyph{strokes, left, width};
}

std::vector<Glyph> Glyphs(std::string_view text) {
  std::vector<Glyph> glyphs;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte == 0xC2 && i + 1 < text.size()) {
      const auto next = static_cast<unsigned char>(text[++i]);
      glyphs.push_back(MakeGlyph(next == 0xB0   ? kGlyphs[kDegree]
                                 : next == 0xB7 ? kGlyphs[kMiddleDot]
                                                : kBox,
                                 false));
    } else if (byte >= kFirst && byte < kFirst + kDegree) {
      glyphs.push_back(
          MakeGlyph(kGlyphs[static_cast<std::size_t>(byte - kFirst)], byte >= '0' && byte <= '9'));
    } else if (byte < 0x80 || byte >= 0xC0) {  // one box per character, not per byte
      glyphs.push_back(MakeGlyph(kBox, false));
    }
  }
  return glyphs;
}

float Width(const std::vector<Glyph>& glyphs) {
  float width = glyphs.empty() ? 0.0F : -kGap;
  for (const Glyph& glyph : glyphs) {
    width += glyph.width + kGap;
  }
  return width;
}

}  // namespace

float TextWidth(std::string_view text, float height) {
  return Width(Glyphs(text)) * height / kGrid;
}

void DrawText(Canvas& canvas, Spot baseline, std::string_view text, const TextStyle& style) {
  const float unit = style.height / kGrid;
  const std::vector<Glyph> glyphs = Glyphs(text);
  const float part = style.align == Align::kLeft ? 0.0F : style.align == Align::kCentre ? 0.5F : 1.0F;
  float x = baseline.x - part * Width(glyphs) * unit;
  for (const Glyph& glyph : glyphs) {
    const auto spot = [&](const char* point) {
      return Spot{x + (static_cast<float>(point[0] - '0') - glyph.left) * unit,
                  baseline.y + (static_cast<float>(point[1] - '0') - kGrid) * unit};
    };
    for (const char* point = glyph.strokes; *point != '\0';) {
      if (*point == ' ') {
        ++point;
      } else {
        const bool goes_on = point[2] != '\0' && point[2] != ' ';
        if (goes_on) {
          const bool is_dot = point[0] == point[2] && point[1] == point[3];
          canvas.Line(spot(point), spot(point + 2), (is_dot ? 1.5F : 1.0F) * kPen * unit * style.weight,
                      style.colour);
        }
        point += 2;
      }
    }
    x += (glyph.width + kGap) * unit;
  }
}

}  // namespace orva
