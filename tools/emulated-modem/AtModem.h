#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kx::modem {

/// A modem that exists only in its answers to AT commands (3GPP TS 27.007): with or without a SIM, registered
/// with a network of some technology or with none.
class AtModem {
 public:
  /// What an AT command is answered with: the lines of information, and then "OK", "ERROR" or "+CME ERROR:
  /// n".
  std::vector<std::string> answer(const std::string &command) const;

  /// Puts in a SIM of the operator with that code, "26201": three digits, then two or three. False, and no
  /// change, for anything else.
  bool insertSim(const std::string &operatorCode);
  void removeSim() { operatorCode_.reset(); }

  /// The technology of the network that it is registered with, one of gsm, umts, edge, hsdpa, hsupa, hspa and
  /// lte; none for no network. False, and no change, for an unknown name. Only a modem with a SIM is
  /// registered.
  bool useTechnology(const std::string &name);

  /// What it says of itself when its registration has changed.
  std::vector<std::string> registrationReport() const;

 private:
  bool isRegistered() const { return operatorCode_ && accessTechnology_; }
  /// The status, and where and how it is registered, in the circuit-switched domain ("+CREG"), the packet
  /// domain of 2G and 3G ("+CGREG") or that of LTE ("+CEREG").
  std::string registration(const std::string &domain) const;
  std::vector<std::string> answerOfSim(const std::string &command) const;

  std::optional<std::string> operatorCode_ = "26201";
  std::optional<int> accessTechnology_ = 7;  ///< <AcT>: LTE
};

}  // namespace kx::modem
