// Writes the bundle's Turtle files from the parameter table and the factory bank, so ports,
// groups and presets always match the code:
//
//   pelma_ttlgen BUNDLE_DIR FACTORY_BANK MODULE_FILE_NAME UI_MODULE_FILE_NAME
//
// writes BUNDLE_DIR/manifest.ttl (with the editor), pelma.ttl (the plug-in and its ports) and
// presets.ttl (one preset per factory patch).

#include <fmt/format.h>

#include <cctype>
#include <cstdio>
#include <fstream>
#include <string>

#include "bank/Bank.h"
#include "lv2/PelmaUris.h"

namespace {

using namespace pelma;

constexpr const char* kPrefixes = R"(@prefix atom: <http://lv2plug.in/ns/ext/atom#> .
@prefix doap: <http://usefulinc.com/ns/doap#> .
@prefix lv2: <http://lv2plug.in/ns/lv2core#> .
@prefix midi: <http://lv2plug.in/ns/ext/midi#> .
@prefix pg: <http://lv2plug.in/ns/ext/port-groups#> .
@prefix pprops: <http://lv2plug.in/ns/ext/port-props#> .
@prefix pset: <http://lv2plug.in/ns/ext/presets#> .
@prefix rsz: <http://lv2plug.in/ns/ext/resize-port#> .
@prefix rdf: <http://www.w3.org/1999/02/22-rdf-syntax-ns#> .
@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .
@prefix state: <http://lv2plug.in/ns/ext/state#> .
@prefix time: <http://lv2plug.in/ns/ext/time#> .
@prefix ui: <http://lv2plug.in/ns/extensions/ui#> .
@prefix units: <http://lv2plug.in/ns/extensions/units#> .
@prefix urid: <http://lv2plug.in/ns/ext/urid#> .
@prefix work: <http://lv2plug.in/ns/ext/worker#> .

)";

struct GroupInfo {
  Group group;
  const char* symbol;
  const char* label;
};
constexpr GroupInfo kGroups[] = {
    {Group::Oscillators, "oscillators", "Oscillators"},
    {Group::Filter, "filter", "Filter"},
    {Group::FilterEnvelope, "filter_envelope", "Filter envelope"},
    {Group::AmpEnvelope, "amp_envelope", "Amplitude envelope"},
    {Group::Modulation, "modulation", "Modulation"},
    {Group::Output, "output", "Output"},
};

const char* groupSymbol(Group group) {
  for (const auto& info : kGroups) {
    if (info.group == group) return info.symbol;
  }
  return "output";
}

const char* unitUri(Unit unit) {
  switch (unit) {
    case Unit::Hertz:
      return "units:hz";
    case Unit::Seconds:
      return "units:s";
    case Unit::Decibels:
      return "units:db";
    case Unit::Semitones:
      return "units:semitone12TET";
    case Unit::Cents:
      return "units:cent";
    case Unit::Octaves:
      return "units:oct";
    case Unit::None:
      break;
  }
  return nullptr;
}

// A Turtle decimal literal.
std::string number(float value) {
  return fmt::format("{:.6f}", value);
}

std::string turtleString(std::string_view text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + '"';
}

std::string controlPort(std::uint32_t index, std::string_view symbol, std::string_view name,
                        const char* group, float minimum, float maximum, float defaultValue,
                        std::string extra) {
  return fmt::format(
      "  [\n    a lv2:InputPort , lv2:ControlPort ;\n    lv2:index {} ;\n    lv2:symbol \"{}\" ;\n"
      "    lv2:name {} ;\n    pg:group <{}#{}> ;\n    lv2:default {} ;\n    lv2:minimum {} ;\n"
      "    lv2:maximum {} ;{}\n  ]",
      index, symbol, turtleString(name), kPluginUri, group, number(defaultValue), number(minimum),
      number(maximum), extra);
}

std::string parameterPort(std::size_t i) {
  const Parameter& p = kParameters[i];
  std::string extra;
  if (const char* unit = unitUri(p.unit)) extra += fmt::format("\n    units:unit {} ;", unit);
  if (p.logarithmic) extra += "\n    lv2:portProperty pprops:logarithmic ;";
  if (p.kind != Kind::Continuous) extra += "\n    lv2:portProperty lv2:integer ;";
  if (p.kind == Kind::Choice) {
    extra += "\n    lv2:portProperty lv2:enumeration ;";
    for (std::size_t c = 0; c < p.choices.size(); ++c) {
      if (p.choices[c].empty()) continue;
      std::string label(p.choices[c]);  // "lowpass" in bank files, "Lowpass" in editors
      label[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(label[0])));
      extra += fmt::format("\n    lv2:scalePoint [ rdfs:label {} ; rdf:value {} ] ;",
                           turtleString(label), number(static_cast<float>(c)));
    }
  }
  return controlPort(kFirstParameterPort + static_cast<std::uint32_t>(i), p.symbol, p.name,
                     groupSymbol(p.group), p.minimum, p.maximum, p.defaultValue, extra);
}

std::string pluginTurtle() {
  std::string ttl = kPrefixes;
  for (const auto& info : kGroups) {
    ttl += fmt::format("<{}#{}>\n  a pg:Group ;\n  lv2:symbol \"{}\" ;\n  rdfs:label \"{}\" .\n\n",
                       kPluginUri, info.symbol, info.symbol, info.label);
  }
  ttl += fmt::format(
      "<{}#sound>\n  a pg:Group ;\n  lv2:symbol \"sound\" ;\n"
      "  rdfs:label \"Bank and patch\" .\n\n",
      kPluginUri);
  ttl += fmt::format(
      "<{}#out>\n  a pg:OutputGroup , pg:StereoGroup ;\n  lv2:symbol \"out\" ;\n"
      "  rdfs:label \"Output\" .\n\n",
      kPluginUri);
  ttl += fmt::format(
      "<{}>\n  a lv2:Plugin , lv2:InstrumentPlugin ;\n  doap:name \"Pelma\" ;\n"
      "  rdfs:comment \"A 16-voice subtractive synthesizer with sound banks.\" ;\n"
      "  lv2:requiredFeature urid:map ;\n"
      "  lv2:optionalFeature lv2:hardRTCapable , work:schedule ;\n"
      "  lv2:extensionData state:interface , work:interface ;\n  ui:ui <{}> ;\n  lv2:port\n",
      kPluginUri, kUiUri);
  ttl += fmt::format(
      "  [\n    a lv2:InputPort , atom:AtomPort ;\n    atom:bufferType atom:Sequence ;\n"
      "    atom:supports midi:MidiEvent , time:Position ;\n    lv2:designation lv2:control ;\n"
      "    lv2:index {} ;\n    lv2:symbol \"control\" ;\n    lv2:name \"Control\" ;\n  ] ,\n",
      kControlPort);
  for (auto [index, symbol, name, side] : {std::tuple{kLeftPort, "out_left", "Left", "left"},
                                           std::tuple{kRightPort, "out_right", "Right", "right"}}) {
    ttl += fmt::format(
        "  [\n    a lv2:OutputPort , lv2:AudioPort ;\n    lv2:index {} ;\n    lv2:symbol \"{}\" ;\n"
        "    lv2:name \"{}\" ;\n    pg:group <{}#out> ;\n    lv2:designation pg:{} ;\n  ] ,\n",
        index, symbol, name, kPluginUri, side);
  }
  for (std::size_t i = 0; i < kParameterCount; ++i)
    ttl += parameterPort(i) + " ,\n";
  ttl += controlPort(kBankPort, "bank", "Bank", "sound", 0, 127, 0,
                     "\n    lv2:portProperty lv2:integer ;") +
         " ,\n";
  ttl += controlPort(kProgramPort, "program", "Patch", "sound", 0, 127, 0,
                     "\n    lv2:portProperty lv2:integer ;") +
         " ,\n";
  ttl += fmt::format(
      "  [\n    a lv2:OutputPort , atom:AtomPort ;\n    atom:bufferType atom:Sequence ;\n"
      "    atom:supports atom:Object ;\n    lv2:designation lv2:control ;\n"
      "    rsz:minimumSize {} ;\n    lv2:index {} ;\n    lv2:symbol \"notify\" ;\n"
      "    lv2:name \"Notify\" ;\n  ] ,\n",
      kNotifyBufferSize, kNotifyPort);
  ttl += fmt::format(
      "  [\n    a lv2:OutputPort , lv2:ControlPort ;\n    lv2:index {} ;\n"
      "    lv2:symbol \"level\" ;\n    lv2:name \"Output level\" ;\n"
      "    lv2:minimum 0.0 ;\n    lv2:maximum 1.0 ;\n  ] .\n",
      kLevelPort);
  return ttl;
}

std::string presetUri(std::size_t number) {
  return fmt::format("{}#preset-{}", kPluginUri, number);
}

std::string presetsTurtle(const Bank& factory) {
  std::string ttl = kPrefixes;
  for (std::size_t n = 0; n < factory.patches.size(); ++n) {
    const Patch& patch = factory.patches[n];
    ttl += fmt::format(
        "<{}>\n  a pset:Preset ;\n  lv2:appliesTo <{}> ;\n  rdfs:label {} ;\n"
        "  lv2:port\n",
        presetUri(n + 1), kPluginUri, turtleString(patch.name));
    for (std::size_t i = 0; i < kParameterCount; ++i) {
      ttl += fmt::format("    [ lv2:symbol \"{}\" ; pset:value {} ] ,\n", kParameters[i].symbol,
                         number(patch.values[i]));
    }
    ttl += "    [ lv2:symbol \"bank\" ; pset:value 0.0 ] ,\n";
    ttl += fmt::format("    [ lv2:symbol \"program\" ; pset:value {} ] .\n\n",
                       number(static_cast<float>(n)));
  }
  return ttl;
}

std::string manifestTurtle(const Bank& factory, std::string_view module,
                           std::string_view uiModule) {
  std::string ttl = kPrefixes;
  ttl += fmt::format(
      "<{}>\n  a lv2:Plugin , lv2:InstrumentPlugin ;\n  lv2:binary <{}> ;\n"
      "  rdfs:seeAlso <pelma.ttl> .\n\n",
      kPluginUri, module);
  // The editor: an X11 window drawn with Qt 6, driven by the host's idle calls.
  ttl += fmt::format(
      "<{}>\n  a ui:X11UI ;\n  ui:binary <{}> ;\n"
      "  lv2:requiredFeature ui:idleInterface , urid:map ;\n"
      "  lv2:optionalFeature ui:parent , ui:resize ;\n"
      "  lv2:extensionData ui:idleInterface , ui:resize ;\n"
      "  ui:portNotification [ ui:plugin <{}> ; lv2:symbol \"notify\" ;"
      " ui:protocol atom:eventTransfer ] ,\n"
      "    [ ui:plugin <{}> ; lv2:symbol \"level\" ; ui:protocol ui:floatProtocol ] .\n\n",
      kUiUri, uiModule, kPluginUri, kPluginUri);
  for (std::size_t n = 0; n < factory.patches.size(); ++n) {
    ttl += fmt::format(
        "<{}>\n  a pset:Preset ;\n  lv2:appliesTo <{}> ;\n  rdfs:seeAlso <presets.ttl> .\n\n",
        presetUri(n + 1), kPluginUri);
  }
  return ttl;
}

bool writeText(const std::filesystem::path& file, const std::string& text) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  if (!out) std::fprintf(stderr, "pelma_ttlgen: cannot write %s\n", file.c_str());
  return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr,
                 "usage: pelma_ttlgen BUNDLE_DIR FACTORY_BANK MODULE_FILE_NAME "
                 "UI_MODULE_FILE_NAME\n");
    return 2;
  }
  std::filesystem::path bundle = argv[1];
  auto factory = readBank(argv[2]);
  if (!factory) return 1;
  std::filesystem::create_directories(bundle);
  bool ok = writeText(bundle / "pelma.ttl", pluginTurtle()) &&
            writeText(bundle / "presets.ttl", presetsTurtle(*factory)) &&
            writeText(bundle / "manifest.ttl", manifestTurtle(*factory, argv[3], argv[4]));
  return ok ? 0 : 1;
}
