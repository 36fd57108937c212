#include "AudioTapSessionError.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace quenlor {

namespace {

/// Bytes 0x80 to 0xFF of Mac OS Roman in UTF-8 (the Unicode Consortium's mapping ROMAN.TXT).
constexpr std::array<std::string_view, 128> upperMacRoman = {
    "Ä",      "Å", "Ç", "É", "Ñ", "Ö", "Ü", "á", "à", "â", "ä",      "ã", "å", "ç", "é", "è",
    "ê",      "ë", "í", "ì", "î", "ï", "ñ", "ó", "ò", "ô", "ö",      "õ", "ú", "ù", "û", "ü",
    "†",      "°", "¢", "£", "§", "•", "¶", "ß", "®", "©", "™",      "´", "¨", "≠", "Æ", "Ø",
    "∞",      "±", "≤", "≥", "¥", "µ", "∂", "∑", "∏", "π", "∫",      "ª", "º", "Ω", "æ", "ø",
    "¿",      "¡", "¬", "√", "ƒ", "≈", "∆", "«", "»", "…", "\u00A0", "À", "Ã", "Õ", "Œ", "œ",
    "–",      "—", "“", "”", "‘", "’", "÷", "◊", "ÿ", "Ÿ", "⁄",      "€", "‹", "›", "ﬁ", "ﬂ",
    "‡",      "·", "‚", "„", "‰", "Â", "Ê", "Á", "Ë", "È", "Í",      "Î", "Ï", "Ì", "Ó", "Ô",
    "\uF8FF", "Ò", "Ú", "Û", "Ù", "ı", "ˆ", "˜", "¯", "˘", "˙",      "˚", "¸", "˝", "˛", "ˇ"};

/// All control and format characters that Mac OS Roman has.
bool isControl(unsigned char byte) {
  return byte < 0x20 || byte == 0x7F;
}

/// Blanks (the no-break space 0xCA too) and tabs.
bool isWhitespace(unsigned char byte) {
  return byte == ' ' || byte == '\t' || byte == 0xCA;
}

template <typename Predicate>
std::string_view trimmedOf(std::string_view bytes, Predicate unwanted) {
  const auto isUnwanted = [&](char c) { return unwanted(static_cast<unsigned char>(c)); };
  while (!bytes.empty() && isUnwanted(bytes.front())) bytes.remove_prefix(1);
  while (!bytes.empty() && isUnwanted(bytes.back())) bytes.remove_suffix(1);
  return bytes;
}

std::string decodedMacRoman(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80)
      text += c;
    else
      text += upperMacRoman[byte - 0x80U];
  }
  return text;
}

/// status as the four characters it is often made of; in hexadecimal where none can be shown.
std::string fourCC(platform::OSStatus status) {
  const auto code = static_cast<std::uint32_t>(status);
  const std::array<char, 4> bytes = {static_cast<char>(code >> 24), static_cast<char>(code >> 16),
                                     static_cast<char>(code >> 8), static_cast<char>(code)};
  const std::string_view all(bytes.data(), bytes.size());
  const std::string_view visible = trimmedOf(trimmedOf(all, isControl), isWhitespace);
  if (!visible.empty()) return decodedMacRoman(visible);
  std::array<char, 11> hexadecimal{};
  std::snprintf(hexadecimal.data(), hexadecimal.size(), "0x%X", code);
  return hexadecimal.data();
}

}  // namespace

AudioTapSessionError AudioTapSessionError::invalidAudioFormat(const std::string& message) {
  return {Case::invalidAudioFormat, message, 0, "Audio format error: " + message};
}

AudioTapSessionError AudioTapSessionError::coreAudio(const std::string& operation,
                                                     platform::OSStatus status) {
  return {Case::coreAudio, operation, status,
          "Core Audio error while trying to " + operation + ": " + std::to_string(status) + " (" +
              fourCC(status) + ")"};
}

AudioTapSessionError AudioTapSessionError::sessionAlreadyStarted() {
  return {Case::sessionAlreadyStarted, "", 0, "The Quenlor audio session is already running."};
}

AudioTapSessionError AudioTapSessionError::sessionNotRunning() {
  return {Case::sessionNotRunning, "", 0, "The Quenlor audio session is not running."};
}

AudioTapSessionError AudioTapSessionError::mixedModeRequired() {
  return {Case::mixedModeRequired, "", 0, "The Quenlor audio session only supports mixed mode."};
}

AudioTapSessionError AudioTapSessionError::missingMicrophoneInput() {
  return {Case::missingMicrophoneInput, "", 0,
          "No microphone input node is available for the Quenlor audio session."};
}

}  // namespace quenlor
