#pragma once

#include <string>
#include <vector>

namespace kx::collector {

/// That text as a QR code for a terminal, two rows of modules a line, with the quiet zone around it. With
/// `colours` it is black on white whatever the terminal's own are; without, it is drawn for light text on a
/// dark ground. Throws std::runtime_error when the text is too long for a QR code.
std::string qrCode(const std::string &text, bool colours);

/// The same as its modules, without the quiet zone: a text a row, '1' for what is dark and '0' for what is
/// light.
std::vector<std::string> qrModules(const std::string &text);

}  // namespace kx::collector
