#include "tools/collector/RecordDocument.h"

#include <algorithm>
#include <string_view>

#include "tools/collector/Encoding.h"

namespace kx::collector {

namespace {

/// Whether JSON text has it as it is, in ASCII.
bool isPlainText(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char character) {
    return character >= ' ' && character < 0x7F && character != '"' && character != '\\';
  });
}

void appendText(std::string &json, const std::string &text) {
  if (isPlainText(text)) {
    (json += '"').append(text) += '"';
  } else {
    json += lineOf(text);
  }
}

template <typename Value>
Document orNull(const std::optional<Value> &value) {
  return value ? Document(*value) : Document();
}

/// The one message in the text, if it is there.
Document messageIn(const Record &record) {
  if (record.kind != "message" || !record.text) return {};
  const Document document = Document::parse(*record.text, nullptr, /*allow_exceptions=*/false);
  if (!document.is_array() || document.size() != 1 || !document[0].is_object()) return {};
  return document[0];
}

}  // namespace

Document summaryDocument(const RecordSummary &summary) {
  return {{"id", summary.id},
          {"time", summary.time},
          {"kind", summary.kind},
          {"outcome", summary.accepted ? "good" : "bad"},
          {"status", summary.status},
          {"reason", summary.reason.empty() ? Document() : Document(summary.reason)},
          {"device", orNull(summary.device)},
          {"bundle", orNull(summary.bundle)},
          {"packedSize", summary.packedSize},
          {"unpackedSize", summary.unpackedSize},
          {"warnings", summary.warnings},
          {"fault", orNull(summary.fault)},
          {"eventId", orNull(summary.eventId)},
          {"eventTime", orNull(summary.eventTime)},
          {"lat", orNull(summary.latitude)},
          {"lon", orNull(summary.longitude)},
          {"horizontalAccuracy", orNull(summary.horizontalAccuracy)},
          {"microseconds",
           {{"receive", summary.microseconds.receive},
            {"work", summary.microseconds.work},
            {"send", summary.microseconds.send}}}};
}

Document recordDocument(const Record &record, std::optional<std::uint64_t> previous) {
  Document document = summaryDocument(record);
  document["method"] = record.method;
  document["target"] = record.target;
  document["remoteAddress"] = record.remoteAddress;
  document["headerFields"] = documentOf(record.headerFields);
  document["text"] = orNull(record.text);
  document["body"] = base64(record.body);
  document["offending"] = nullptr;
  if (record.offending) {
    document["offending"] = {{"offset", record.offending->offset},
                             {"length", record.offending->bytes.size()},
                             {"bytes", hexadecimal(record.offending->bytes)}};
  }
  document["message"] = messageIn(record);
  document["answer"] = {{"status", record.status}, {"headerFields", documentOf(record.answerFields)}};
  document["previous"] = orNull(previous);
  return document;
}

Document documentOf(const HeaderFields &fields) {
  Document list = Document::array();
  for (const auto &[name, value] : fields) list.push_back(Document::array({name, value}));
  return list;
}

std::string fieldsLine(const HeaderFields &fields) {
  std::string json = "[";
  for (const auto &[name, value] : fields) {
    json += json.size() == 1 ? "[" : ",[";
    appendText(json, name);
    json += ',';
    appendText(json, value);
    json += ']';
  }
  return json += ']';
}

std::string lineOf(const Document &document) {
  return document.dump(-1, ' ', /*ensure_ascii=*/true, Document::error_handler_t::replace);
}

}  // namespace kx::collector
