#include "platform/foundation/PropertyListFile.h"

#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include "platform/foundation/Files.h"
#include "platform/foundation/Log.h"

namespace platform {
namespace {

using PlistPointer = std::unique_ptr<void, decltype(&plist_free)>;

plist_t toPlist(const PropertyValue& value);

plist_t toPlist(const PropertyDictionary& dictionary) {
  plist_t node = plist_new_dict();
  for (const auto& [key, item] : dictionary)
    plist_dict_set_item(node, key.c_str(), toPlist(item));
  return node;
}

plist_t toPlist(const PropertyValue& value) {
  struct Converter {
    plist_t operator()(bool v) const { return plist_new_bool(v); }
    // Integers are stored as the format's 64-bit integers; negative ones in two's complement.
    plist_t operator()(std::int64_t v) const {
      return plist_new_uint(static_cast<std::uint64_t>(v));
    }
    plist_t operator()(double v) const { return plist_new_real(v); }
    plist_t operator()(const std::string& v) const { return plist_new_string(v.c_str()); }
    plist_t operator()(const PropertyData& v) const {
      return plist_new_data(reinterpret_cast<const char*>(v.data()), v.size());
    }
    plist_t operator()(const PropertyArray& v) const {
      plist_t node = plist_new_array();
      for (const auto& item : v)
        plist_array_append_item(node, toPlist(item));
      return node;
    }
    plist_t operator()(const PropertyDictionary& v) const { return toPlist(v); }
  };
  return std::visit(Converter{}, value.value);
}

// True when the XML nests elements at most `maximumDepth` deep, so that neither libplist nor the
// conversion below recurses further. Counts start tags against end tags; empty elements, comments,
// declarations and processing instructions do not nest.
bool xmlNestingWithin(std::string_view xml, int maximumDepth) {
  int depth = 0;
  for (std::size_t at = xml.find('<'); at != std::string_view::npos; at = xml.find('<', at + 1)) {
    const std::string_view rest = xml.substr(at);
    std::size_t end = std::string_view::npos;
    // Comments and character data may hold anything that looks like a tag.
    if (rest.starts_with("<!--")) {
      end = xml.find("-->", at);
    } else if (rest.starts_with("<![CDATA[")) {
      end = xml.find("]]>", at);
    } else if ((end = xml.find('>', at)) != std::string_view::npos) {
      const std::string_view tag = xml.substr(at + 1, end - at - 1);
      if (tag.starts_with('/')) {
        --depth;
      } else if (!tag.starts_with('?') && !tag.starts_with('!') && !tag.ends_with('/') &&
                 ++depth > maximumDepth) {
        return false;
      }
    }
    if (end == std::string_view::npos) break;
    at = end;
  }
  return true;
}

PropertyValue fromPlist(plist_t node);

PropertyDictionary dictionaryFromPlist(plist_t node) {
  PropertyDictionary dictionary;
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  for (;;) {
    char* key = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(node, iterator, &key, &item);
    if (!item) break;
    dictionary[key] = fromPlist(item);
    std::free(key);
  }
  std::free(iterator);
  return dictionary;
}

PropertyValue fromPlist(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t v = 0;
      plist_get_bool_val(node, &v);
      return v != 0;
    }
    case PLIST_UINT: {
      std::uint64_t v = 0;
      plist_get_uint_val(node, &v);
      return static_cast<std::int64_t>(v);
    }
    case PLIST_REAL: {
      double v = 0;
      plist_get_real_val(node, &v);
      return v;
    }
    case PLIST_STRING: {
      char* v = nullptr;
      plist_get_string_val(node, &v);
      std::string text = v ? v : "";
      std::free(v);
      return text;
    }
    case PLIST_DATA: {
      char* v = nullptr;
      std::uint64_t length = 0;
      plist_get_data_val(node, &v, &length);
      PropertyData data(reinterpret_cast<std::uint8_t*>(v),
                        reinterpret_cast<std::uint8_t*>(v) + length);
      std::free(v);
      return data;
    }
    case PLIST_ARRAY: {
      // Arrays are read through the C API: this libplist's C++ arrays read from XML are empty.
      PropertyArray array;
      for (std::uint32_t i = 0; i < plist_array_get_size(node); ++i) {
        array.push_back(fromPlist(plist_array_get_item(node, i)));
      }
      return array;
    }
    case PLIST_DICT:
      return dictionaryFromPlist(node);
    default:
      return PropertyValue();
  }
}

}  // namespace

bool writePropertyList(const PropertyDictionary& dictionary, const std::filesystem::path& path) {
  PlistPointer root(toPlist(dictionary), plist_free);
  char* xml = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(root.get(), &xml, &length);
  if (!xml) return false;
  const std::string text(xml, length);
  plist_to_xml_free(xml);

  std::filesystem::path temporary = path;
  temporary += ".partial";
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    if (!(out << text)) return false;
  }
  std::error_code error;
  std::filesystem::rename(temporary, path, error);
  if (error) std::filesystem::remove(temporary, error);
  return !error;
}

std::optional<PropertyDictionary> readPropertyList(const std::filesystem::path& path,
                                                   std::uint64_t maximumBytes) {
  std::error_code missing;
  if (!std::filesystem::exists(std::filesystem::symlink_status(path, missing))) return std::nullopt;
  std::string why;
  const auto text = readFileUpTo(path, maximumBytes, &why);
  if (text && !xmlNestingWithin(*text, kMaximumPropertyListDepth))
    why = "nests deeper than " + std::to_string(kMaximumPropertyListDepth);
  if (!why.empty()) {
    log("Property list {} refused: it {}", printable(path.string()), why);
    return std::nullopt;
  }
  plist_t root = nullptr;
  plist_from_xml(text->data(), static_cast<std::uint32_t>(text->size()), &root);
  if (!root) return std::nullopt;  // a parse error
  PlistPointer owner(root, plist_free);
  if (plist_get_node_type(root) != PLIST_DICT) return std::nullopt;
  return dictionaryFromPlist(root);
}

}  // namespace platform
