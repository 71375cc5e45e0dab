#include "preset_json/preset_json.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <set>

namespace larkspin_json {

namespace {

// A JSON preset is about 7 kB. Anything far larger is not a preset, and
// reading it whole would let a stray file (or /dev/zero) take all memory.
constexpr size_t kMaxFileBytes = size_t{64} * 1024;
// How much of a value from the file a message shows.
constexpr size_t kMaxShownBytes = 40;

constexpr vora_preset_field kChannelFields[] = {VORA_PRESET_GAIN_DB, VORA_PRESET_FAST_THRESHOLD_DB,
                                                VORA_PRESET_FAST_RATIO};
constexpr vora_preset_field kBandFields[] = {VORA_PRESET_SLOW_THRESHOLD_DB, VORA_PRESET_SLOW_FACTOR,
                                             VORA_PRESET_SLOW_DELAY_MS, VORA_PRESET_SLOW_TIME_CONSTANT_MS};

// `text` cut to `limit` bytes (at a character's start) with the length said,
// so that a hostile file cannot make a message unreadable.
std::string shortened(const std::string& text, size_t limit = kMaxShownBytes) {
  if (text.size() <= limit) {
    return text;
  }
  size_t end = limit;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) {
    --end;
  }
  return text.substr(0, end) + "... (" + std::to_string(text.size()) + " bytes)";
}

std::string shown(const nlohmann::json& value) {
  return shortened(value.dump());
}

std::string describe(const vora_preset_issue& issue) {
  char text[200];
  vora_preset_format_issue(&issue, text, sizeof text);
  return text;
}

std::string where(int band, int channel, vora_preset_field field) {
  std::string text = "band " + std::to_string(band);
  if (channel >= 0) {
    text += ", channel " + std::to_string(channel);
  }
  return text + ", " + vora_preset_field_name(field);
}

float readNumber(const nlohmann::json& object, vora_preset_field field, const std::string& place) {
  const auto it = object.find(vora_preset_field_name(field));
  if (it == object.end() || !it->is_number()) {
    throw PresetError(place + ": missing or not a number");
  }
  return static_cast<float>(it->get<double>());
}

double roundedHz(double hz) {
  return std::round(hz * 10.0) / 10.0;
}

// The first refused value of `issues`, with a count of the others.
std::string refusal(const std::vector<vora_preset_issue>& issues, int refused) {
  for (const vora_preset_issue& issue : issues) {
    if (issue.kind == VORA_PRESET_REFUSED) {
      std::string message = describe(issue);
      if (refused > 1) {
        message += " (and " + std::to_string(refused - 1) + " more refused)";
      }
      return message;
    }
  }
  return "refused";
}

std::vector<vora_preset_issue> issueBuffer() {
  return std::vector<vora_preset_issue>(VORA_PRESET_BAND_COUNT *
                                        (2 * std::size(kChannelFields) + std::size(kBandFields)));
}

// A key the reader does not know is an error: a misspelt field would
// otherwise be silently left at a default.
void refuseUnknownKeys(const nlohmann::json& object, std::initializer_list<const char*> known,
                       const std::string& place) {
  for (const auto& item : object.items()) {
    const std::string& key = item.key();
    if (std::none_of(known.begin(), known.end(), [&](const char* name) { return key == name; })) {
      throw PresetError(place + ": unknown key " + shown(key));
    }
  }
}

// The band number and edges are written for the reader; they cannot be
// changed, so a value that differs means the file was edited in the belief
// that it could be.
void refuseEditedBand(const nlohmann::json& entry, int band, const vora_band_info& info) {
  const std::string place = "band " + std::to_string(band);
  const auto number = entry.find("band");
  if (number != entry.end() && (!number->is_number_integer() || number->get<long>() != band)) {
    throw PresetError(place + ": the entry at this position says \"band\": " + shown(*number));
  }
  for (const auto& [key, hz] : {std::pair{"lowHz", info.lowHz}, std::pair{"highHz", info.highHz}}) {
    const auto it = entry.find(key);
    if (it != entry.end() && (!it->is_number() || std::fabs(it->get<double>() - roundedHz(hz)) > 0.051)) {
      throw PresetError(place + ": " + key + " = " + shown(*it) + " differs from the fixed band edge " +
                        nlohmann::json(roundedHz(hz)).dump() + " Hz (band edges cannot be changed)");
    }
  }
}

} // namespace

nlohmann::json toJson(const vora_preset& preset) {
  vora_band_info layout[VORA_BAND_COUNT];
  vora_preset_band_layout(48000.0f, layout); // the controlled bands' edges do not depend on the rate
  nlohmann::json bands = nlohmann::json::array();
  for (int band = 0; band < VORA_PRESET_BAND_COUNT; ++band) {
    vora_preset copy = preset;
    nlohmann::json entry;
    entry["band"] = band;
    entry["lowHz"] = roundedHz(layout[band].lowHz);
    entry["highHz"] = roundedHz(layout[band].highHz);
    nlohmann::json channels = nlohmann::json::array();
    for (int channel = 0; channel < VORA_PRESET_CHANNEL_COUNT; ++channel) {
      nlohmann::json fields;
      for (vora_preset_field field : kChannelFields) {
        fields[vora_preset_field_name(field)] = *vora_preset_value(&copy, band, channel, field);
      }
      channels.push_back(fields);
    }
    entry["channels"] = channels;
    for (vora_preset_field field : kBandFields) {
      entry[vora_preset_field_name(field)] = *vora_preset_value(&copy, band, -1, field);
    }
    bands.push_back(entry);
  }
  return nlohmann::json{{"format", "larkspin-preset"}, {"version", 1}, {"bands", bands}};
}

std::string toJsonText(const vora_preset& preset) {
  return toJson(preset).dump(2) + "\n";
}

Preset encode(const vora_preset& values) {
  Preset result{values, {}, {}};
  std::vector<vora_preset_issue> issues = issueBuffer();
  int count = 0;
  const int refused =
      vora_preset_encode(&values, result.payload.data(), issues.data(), static_cast<int>(issues.size()), &count);
  issues.resize(static_cast<size_t>(count));
  if (refused > 0) {
    throw PresetError(refusal(issues, refused));
  }
  for (const vora_preset_issue& issue : issues) {
    result.roundingNotes.push_back(describe(issue));
  }
  return result;
}

Preset fromJson(const nlohmann::json& json) {
  if (!json.is_object() || !json.contains("bands") || !json["bands"].is_array() ||
      json["bands"].size() != VORA_PRESET_BAND_COUNT) {
    throw PresetError("a JSON preset needs a \"bands\" array of 13 entries");
  }
  refuseUnknownKeys(json, {"format", "version", "bands"}, "the preset");
  if (json.contains("format") && json["format"] != "larkspin-preset") {
    throw PresetError("\"format\" is " + shown(json["format"]) + ", not \"larkspin-preset\"");
  }
  if (json.contains("version") && json["version"] != 1) {
    throw PresetError("preset format version " + shown(json["version"]) + " is not supported (only 1 is)");
  }
  vora_band_info layout[VORA_BAND_COUNT];
  vora_preset_band_layout(48000.0f, layout);
  vora_preset values;
  for (int band = 0; band < VORA_PRESET_BAND_COUNT; ++band) {
    const nlohmann::json& entry = json["bands"][static_cast<size_t>(band)];
    if (!entry.is_object()) {
      throw PresetError("band " + std::to_string(band) + ": not a JSON object");
    }
    refuseUnknownKeys(
        entry,
        {"band", "lowHz", "highHz", "channels", "slowThresholdDb", "slowFactor", "slowDelayMs", "slowTimeConstantMs"},
        "band " + std::to_string(band));
    refuseEditedBand(entry, band, layout[band]);
    const auto channels = entry.find("channels");
    if (channels == entry.end() || !channels->is_array() || channels->size() != VORA_PRESET_CHANNEL_COUNT) {
      throw PresetError("band " + std::to_string(band) + ": \"channels\" must hold two entries");
    }
    for (int channel = 0; channel < VORA_PRESET_CHANNEL_COUNT; ++channel) {
      const nlohmann::json& fields = (*channels)[static_cast<size_t>(channel)];
      const std::string place = "band " + std::to_string(band) + ", channel " + std::to_string(channel);
      if (!fields.is_object()) {
        throw PresetError(place + ": not a JSON object");
      }
      refuseUnknownKeys(fields, {"gainDb", "fastThresholdDb", "fastRatio"}, place);
      for (vora_preset_field field : kChannelFields) {
        *vora_preset_value(&values, band, channel, field) = readNumber(fields, field, where(band, channel, field));
      }
    }
    for (vora_preset_field field : kBandFields) {
      *vora_preset_value(&values, band, -1, field) = readNumber(entry, field, where(band, -1, field));
    }
  }
  return encode(values);
}

Preset parse(std::string_view bytes, const std::string& name) {
  if (bytes.size() == VORA_AP_PRESET_PAYLOAD_SIZE) {
    Preset result{};
    std::copy(bytes.begin(), bytes.end(), result.payload.begin());
    vora_preset_decode(result.payload.data(), &result.values);
    std::vector<vora_preset_issue> issues = issueBuffer();
    int count = 0;
    const int refused = vora_preset_check(&result.values, issues.data(), static_cast<int>(issues.size()), &count);
    issues.resize(static_cast<size_t>(std::min<int>(count, static_cast<int>(issues.size()))));
    if (refused > 0) {
      throw PresetError("the library refuses the payload '" + name + "': " + refusal(issues, refused));
    }
    return result;
  }
  // JSON lets a key repeat and the last one win; in a preset that hides an
  // edit, so it is refused.
  std::vector<std::set<std::string>> keysOfOpenObjects;
  const auto refuseRepeatedKeys = [&](int, nlohmann::json::parse_event_t event, nlohmann::json& parsed) {
    using Event = nlohmann::json::parse_event_t;
    if (event == Event::object_start) {
      keysOfOpenObjects.emplace_back();
    } else if (event == Event::object_end) {
      keysOfOpenObjects.pop_back();
    } else if (event == Event::key && !keysOfOpenObjects.back().insert(parsed.get<std::string>()).second) {
      throw PresetError("preset '" + name + "': the key " + shown(parsed) + " appears twice in one object");
    }
    return true;
  };
  nlohmann::json json;
  try {
    json = nlohmann::json::parse(bytes, refuseRepeatedKeys);
  } catch (const nlohmann::json::parse_error& error) {
    // Without the library's "[json.exception...] " prefix.
    const std::string what = error.what();
    throw PresetError("preset '" + name + "' is neither a 196-byte payload nor valid JSON (" +
                      shortened(what.substr(what.find("] ") + 2), 120) + ")");
  }
  return fromJson(json);
}

Preset readFile(const std::string& path) {
  // Not blocking: a pipe without a writer is refused below instead of waited for.
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    throw PresetError("cannot read preset '" + path + "': " + std::strerror(errno));
  }
  struct Closer {
    int fd;
    ~Closer() { ::close(fd); }
  } closer{fd};
  struct stat status {};
  if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    throw PresetError("cannot read preset '" + path + "': " +
                      (S_ISDIR(status.st_mode) ? "it is a folder" : "not an ordinary file (a device or pipe?)"));
  }
  std::string bytes(kMaxFileBytes + 1, '\0');
  size_t got = 0;
  // A file that grows while read is held to the limit all the same.
  while (got < bytes.size()) {
    const ssize_t n = ::read(fd, bytes.data() + got, bytes.size() - got);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n < 0) {
      throw PresetError("cannot read preset '" + path + "': " + std::strerror(errno));
    }
    if (n == 0) {
      break;
    }
    got += static_cast<size_t>(n);
  }
  if (got > kMaxFileBytes || static_cast<size_t>(status.st_size) > kMaxFileBytes) {
    throw PresetError("preset '" + path + "' is larger than a preset can be (" + std::to_string(kMaxFileBytes / 1024) +
                      " kB at most)");
  }
  bytes.resize(got);
  return parse(bytes, path);
}

} // namespace larkspin_json
