// Writes the bundle's Turtle files from the port table:
//   larkspin-lv2-ttl OUTPUT_DIR BINARY_NAME
// produces OUTPUT_DIR/manifest.ttl and OUTPUT_DIR/larkspin.ttl.
#include "port_table.h"

#include <larkspin/vora_preset.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>

namespace {

using namespace larkspin_lv2;

const char* kPrefixes = "@prefix atom: <http://lv2plug.in/ns/ext/atom#> .\n"
                        "@prefix doap: <http://usefulinc.com/ns/doap#> .\n"
                        "@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n"
                        "@prefix patch: <http://lv2plug.in/ns/ext/patch#> .\n"
                        "@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .\n"
                        "@prefix state: <http://lv2plug.in/ns/ext/state#> .\n"
                        "@prefix units: <http://lv2plug.in/ns/extensions/units#> .\n"
                        "@prefix urid: <http://lv2plug.in/ns/ext/urid#> .\n"
                        "@prefix work: <http://lv2plug.in/ns/ext/worker#> .\n"
                        "@prefix log: <http://lv2plug.in/ns/ext/log#> .\n"
                        "@prefix pprops: <http://lv2plug.in/ns/ext/port-props#> .\n"
                        "@prefix pg: <http://lv2plug.in/ns/ext/port-groups#> .\n\n";

const char* kFieldLabels[VORA_PRESET_FIELD_COUNT] = {
    "gain", "fast threshold", "fast ratio", "slow threshold", "slow factor", "slow delay", "slow time constant"};

const char* fieldUnit(vora_preset_field field) {
  switch (field) {
  case VORA_PRESET_GAIN_DB:
  case VORA_PRESET_FAST_THRESHOLD_DB:
  case VORA_PRESET_SLOW_THRESHOLD_DB:
    return "units:db";
  case VORA_PRESET_SLOW_DELAY_MS:
  case VORA_PRESET_SLOW_TIME_CONSTANT_MS:
    return "units:ms";
  default:
    return nullptr;
  }
}

std::string number(float value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.9g", static_cast<double>(value));
  std::string s = text;
  if (s.find_first_of(".e") == std::string::npos) {
    s += ".0";
  }
  return s;
}

void controlPort(std::ostream& out, uint32_t index, const char* symbol, const std::string& name, float minimum,
                 float defaultValue, float maximum, const char* extra) {
  out << "  [\n    a lv2:InputPort , lv2:ControlPort ;\n    lv2:index " << index << " ;\n    lv2:symbol \"" << symbol
      << "\" ;\n    lv2:name \"" << name << "\" ;\n    lv2:default " << number(defaultValue) << " ;\n    lv2:minimum "
      << number(minimum) << " ;\n    lv2:maximum " << number(maximum) << " ;\n"
      << extra << "  ]";
}

// The stereo plugin's audio ports form one input and one output group with
// left and right designations: hosts that give a plugin one stream per group
// (GStreamer) see it as a stereo filter instead of four mono streams.
void stereoGroups(std::ostream& out, const char* uri) {
  out << "<" << uri << "#in>\n  a pg:StereoGroup , pg:InputGroup ;\n  lv2:symbol \"in\" ;\n"
      << "  rdfs:label \"Input\" .\n\n"
      << "<" << uri << "#out>\n  a pg:StereoGroup , pg:OutputGroup ;\n  lv2:symbol \"out\" ;\n"
      << "  rdfs:label \"Output\" ;\n  pg:source <" << uri << "#in> .\n\n";
}

void plugin(std::ostream& out, const char* uri, const char* name, int channels, const vora_preset& defaults) {
  if (channels == 2) {
    stereoGroups(out, uri);
  }
  out << "<" << uri << ">\n  a lv2:Plugin , lv2:DynamicsPlugin , doap:Project ;\n"
      << "  doap:name \"" << name << "\" ;\n"
      << "  lv2:project <urn:larkspin:lv2> ;\n"
      << "  lv2:optionalFeature lv2:hardRTCapable , urid:map , work:schedule , log:log ;\n"
      << "  lv2:extensionData work:interface , state:interface ;\n";
  if (channels == 2) {
    out << "  pg:mainInput <" << uri << "#in> ;\n  pg:mainOutput <" << uri << "#out> ;\n";
  }
  out << "  patch:writable <" << kPresetParameterUri << "> ;\n  lv2:port\n";
  out << "  [\n    a lv2:InputPort , atom:AtomPort ;\n    atom:bufferType atom:Sequence ;\n"
      << "    atom:supports patch:Message ;\n    lv2:designation lv2:control ;\n"
      << "    lv2:portProperty lv2:connectionOptional ;\n    lv2:index " << kControlPort
      << " ;\n    lv2:symbol \"control\" ;\n    lv2:name \"Control\"\n  ] ,\n";
  controlPort(out, kIntensityPort, "intensity", "Intensity", 0.0f, 1.0f, 1.0f, "");
  out << " ,\n";
  controlPort(out, kBypassPort, "bypass", "Bypass", 0.0f, 0.0f, 1.0f, "    lv2:portProperty lv2:toggled ;\n");
  out << " ,\n  [\n    a lv2:OutputPort , lv2:ControlPort ;\n    lv2:index " << kLatencyPort
      << " ;\n    lv2:symbol \"latency\" ;\n    lv2:name \"Latency\" ;\n"
      << "    lv2:designation lv2:latency ;\n    lv2:portProperty lv2:reportsLatency , pprops:notOnGUI ;\n"
      << "    units:unit units:frame ;\n    lv2:minimum 0.0 ;\n    lv2:maximum 8192.0\n  ]";
  vora_preset editable = defaults;
  for (int i = 0; i < presetPortCount(channels); ++i) {
    const PresetPortField where = presetPortField(i, channels);
    const Range range = presetFieldRange(where.field);
    std::string label = "Band " + std::to_string(where.band) + " " + kFieldLabels[where.field];
    if (where.channel >= 0 && channels == 2) {
      label += where.channel == 0 ? " L" : " R";
    }
    std::string extra;
    if (const char* unit = fieldUnit(where.field)) {
      extra = std::string("    units:unit ") + unit + " ;\n";
    }
    if (where.field == VORA_PRESET_SLOW_DELAY_MS || where.field == VORA_PRESET_SLOW_TIME_CONSTANT_MS) {
      extra += "    lv2:portProperty lv2:integer ;\n";
    }
    out << " ,\n";
    controlPort(out, kFirstPresetPort + static_cast<uint32_t>(i), presetPortSymbol(i, channels).text, label,
                range.minimum, *presetValue(editable, where), range.maximum, extra.c_str());
  }
  // Mono: "in" and "out"; stereo: "in_l", "out_l", "in_r", "out_r" in their
  // groups.
  const char* sides[2][2] = {{"_l", " L"}, {"_r", " R"}};
  for (int c = 0; c < channels; ++c) {
    for (int direction = 0; direction < 2; ++direction) {
      const bool input = direction == 0;
      const uint32_t index = input ? audioInputPort(channels, c) : audioOutputPort(channels, c);
      const char* symbolSuffix = channels == 2 ? sides[c][0] : "";
      const char* nameSuffix = channels == 2 ? sides[c][1] : "";
      out << " ,\n  [\n    a lv2:" << (input ? "InputPort" : "OutputPort") << " , lv2:AudioPort ;\n"
          << "    lv2:index " << index << " ;\n    lv2:symbol \"" << (input ? "in" : "out") << symbolSuffix
          << "\" ;\n    lv2:name \"" << (input ? "In" : "Out") << nameSuffix << "\"";
      if (channels == 2) {
        out << " ;\n    pg:group <" << uri << (input ? "#in" : "#out")
            << "> ;\n    lv2:designation pg:" << (c == 0 ? "left" : "right");
      }
      out << "\n  ]";
    }
  }
  out << " .\n\n";
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: larkspin-lv2-ttl OUTPUT_DIR BINARY_NAME\n";
    return 2;
  }
  const std::string dir = argv[1];
  const std::string binary = argv[2];
  vora_preset defaults{};
  vora_preset_default(&defaults);

  std::ofstream manifest(dir + "/manifest.ttl");
  manifest << "@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> "
              ".\n\n";
  for (const char* uri : {kMonoUri, kStereoUri}) {
    manifest << "<" << uri << ">\n  a lv2:Plugin ;\n  lv2:binary <" << binary
             << "> ;\n  rdfs:seeAlso <larkspin.ttl> .\n\n";
  }

  std::ofstream ttl(dir + "/larkspin.ttl");
  ttl << kPrefixes;
  ttl << "<urn:larkspin:lv2>\n  a doap:Project ;\n  doap:name \"larkspin\" .\n\n";
  ttl << "<" << kPresetParameterUri << ">\n  a lv2:Parameter ;\n  rdfs:label \"Preset file\" ;\n"
      << "  rdfs:comment \"A preset in the larkspin program's JSON form or a 196-byte payload file.\" ;\n"
      << "  rdfs:range atom:Path .\n\n";
  plugin(ttl, kMonoUri, "larkspin mono", 1, defaults);
  plugin(ttl, kStereoUri, "larkspin stereo", 2, defaults);
  manifest.close();
  ttl.close();
  if (!manifest || !ttl) {
    std::cerr << "larkspin-lv2-ttl: could not write to " << dir << "\n";
    return 1;
  }
  return 0;
}
