#include "tools/emulated-modem/AtModem.h"

#include <algorithm>
#include <map>

namespace kx::modem {

namespace {

struct Technology {
  const char *name;
  int accessTechnology;  ///< <AcT>
};

constexpr Technology known[] = {{"gsm", 0},   {"umts", 2}, {"edge", 3}, {"hsdpa", 4},
                                {"hsupa", 5}, {"hspa", 6}, {"lte", 7}};
constexpr int lte = 7;

const char *const simMissing = "+CME ERROR: 10";

/// What is always the same. A command that stands nowhere is not understood.
const std::map<std::string, std::vector<std::string>> &fixedAnswers() {
  static const std::map<std::string, std::vector<std::string>> answers = {
      {"ATE0", {}},
      {"ATV1", {}},
      {"ATX4", {}},
      {"AT&C1", {}},
      {"ATI", {"KXPublisher", "Emulated modem"}},
      {"AT+CGMI", {"KXPublisher"}},
      {"AT+CGMM", {"Emulated modem"}},
      {"AT+CGMR", {"1.0"}},
      {"AT+CGSN", {"004999010640000"}},  // of the range that is set aside for tests
      {"AT+GCAP", {"+GCAP: +CGSM"}},
      {"AT+CMEE=1", {}},
      {"AT+CFUN?", {"+CFUN: 1"}},
      {"AT+CREG=2", {}},
      {"AT+CGREG=2", {}},
      {"AT+CEREG=2", {}},
      {"AT+COPS=3,0", {}},
      {"AT+COPS=3,2", {}},
      {"AT+CSQ", {"+CSQ: 20,99"}},
      {"AT+CSCS=?", {"+CSCS: (\"IRA\")"}},
      {"AT+CSCS?", {"+CSCS: \"IRA\""}},
      {"AT+CSCS=\"IRA\"", {}},
      {"AT+WS46=?", {"+WS46: (12,22,25,28,29)"}},
      {"AT+CGDCONT=?", {"+CGDCONT: (1-8),\"IP\",,,(0),(0)", "+CGDCONT: (1-8),\"IPV6\",,,(0),(0)"}},
  };
  return answers;
}

bool isDigits(const std::string &text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// The digits as SIM files have them: two in a byte, the first in its lower half.
std::string swappedPairs(std::string digits) {
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) std::swap(digits[i], digits[i + 1]);
  return digits;
}

std::vector<std::string> withResult(std::vector<std::string> lines) {
  lines.emplace_back("OK");
  return lines;
}

}  // namespace

bool AtModem::insertSim(const std::string &operatorCode) {
  if (!isDigits(operatorCode) || (operatorCode.size() != 5 && operatorCode.size() != 6)) return false;
  operatorCode_ = operatorCode;
  return true;
}

bool AtModem::useTechnology(const std::string &name) {
  if (name == "none") {
    accessTechnology_.reset();
    return true;
  }
  for (const Technology &technology : known) {
    if (name != technology.name) continue;
    accessTechnology_ = technology.accessTechnology;
    return true;
  }
  return false;
}

std::string AtModem::registration(const std::string &domain) const {
  if (!operatorCode_ || !accessTechnology_) return "0";
  const bool isLte = *accessTechnology_ == lte;
  const bool covers = domain == "+CREG" || (domain == "+CEREG") == isLte;
  return covers ? R"(1,"1A2B","01A2D001",)" + std::to_string(*accessTechnology_) : "0";
}

std::vector<std::string> AtModem::registrationReport() const {
  std::vector<std::string> lines;
  for (const char *const domain : {"+CREG", "+CGREG", "+CEREG"}) {
    lines.push_back(std::string(domain) + ": " + registration(domain));
  }
  return lines;
}

std::vector<std::string> AtModem::answer(const std::string &command) const {
  const auto fixed = fixedAnswers().find(command);
  if (fixed != fixedAnswers().end()) return withResult(fixed->second);
  for (const char *const domain : {"+CREG", "+CGREG", "+CEREG"}) {
    if (command == std::string("AT") + domain + "?") {
      return withResult({std::string(domain) + ": 2," + registration(domain)});
    }
  }
  if (command == "AT+COPS?") {
    if (!isRegistered()) return withResult({"+COPS: 0"});
    return withResult({"+COPS: 0,2,\"" + *operatorCode_ + "\"," + std::to_string(*accessTechnology_)});
  }
  return answerOfSim(command);
}

std::vector<std::string> AtModem::answerOfSim(const std::string &command) const {
  const bool ofSim = command == "AT+CPIN?" || command == "AT+CIMI" || command.rfind("AT+CRSM=", 0) == 0;
  if (!ofSim) return {"ERROR"};
  if (!operatorCode_) return {simMissing};
  if (command == "AT+CPIN?") return withResult({"+CPIN: READY"});
  std::string identity = *operatorCode_ + "1234567890";
  identity.resize(15);
  if (command == "AT+CIMI") return withResult({identity});
  // EF_ICCID: the card's number.
  if (command == "AT+CRSM=176,12258,0,0,10") {
    return withResult({"+CRSM: 144,0,\"" + swappedPairs("89" + identity + "00F") + "\""});
  }
  // EF_AD: how many digits the network code has.
  if (command == "AT+CRSM=176,28589,0,0,4") {
    return withResult({"+CRSM: 144,0,\"0000000" + std::to_string(operatorCode_->size() - 3) + "\""});
  }
  return withResult({"+CRSM: 106,130,\"\""});  // file not found
}

}  // namespace kx::modem
