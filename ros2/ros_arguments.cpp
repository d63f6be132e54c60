// SPDX-License-Identifier: Apache-2.0
#include "ros_arguments.h"

#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace orva::ros2 {
namespace {

using Arguments = std::vector<std::string>;

std::string OptionOf(std::string parameter) {
  std::replace(parameter.begin(), parameter.end(), '_', '-');
  return "--" + parameter;
}

void AddParameter(const std::string& name, const YAML::Node& value, Arguments& own) {
  if (value.IsScalar() && value.Scalar() == "false") return;
  own.push_back(OptionOf(name));
  if (value.IsScalar() && value.Scalar() == "true") return;
  if (value.IsScalar()) {
    own.push_back(value.Scalar());
  } else if (value.IsSequence()) {
    for (const YAML::Node& element : value) own.push_back(element.as<std::string>());
  } else {
    throw std::invalid_argument("the parameter " + name + " is neither a value nor a list of values");
  }
}

void AddFile(const std::string& path, Arguments& own) {
  try {
    const YAML::Node file = YAML::LoadFile(path);
    if (!file.IsMap()) throw std::invalid_argument(path + " holds no parameters");
    for (const auto& node : file) {
      const YAML::Node parameters = node.second["ros__parameters"];
      if (!parameters.IsMap())
        throw std::invalid_argument(path + ": " + node.first.as<std::string>() + " has no ros__parameters");
      for (const auto& parameter : parameters)
        AddParameter(parameter.first.as<std::string>(), parameter.second, own);
    }
  } catch (const YAML::Exception& error) {
    throw std::invalid_argument(path + ": " + error.what());
  }
}

/// "name:=value"
std::pair<std::string, std::string> Assignment(const std::string& text, const std::string& option) {
  const std::size_t at = text.find(":=");
  if (at == 0 || at == std::string::npos)
    throw std::invalid_argument("after " + option + " stands NAME:=VALUE, not '" + text + "'");
  return {text.substr(0, at), text.substr(at + 2)};
}

void AddRemapping(const std::string& text, Arguments& own) {
  const auto [from, to] = Assignment(text, "-r");
  if (from == "__ns") {
    own.insert(own.end(), {"--namespace", to});
  } else if (from != "__node") {
    throw std::invalid_argument("the name '" + from + "' cannot be remapped, only __ns and __node");
  }
}

void AddParameterText(const std::string& text, Arguments& own) {
  const auto [name, value] = Assignment(text, "-p");
  try {
    AddParameter(name, YAML::Load(value), own);
  } catch (const YAML::Exception& error) {
    throw std::invalid_argument("the parameter " + name + ": " + error.what());
  }
}

}  // namespace

std::vector<std::string> OwnArguments(const std::vector<std::string>& arguments) {
  Arguments own;
  bool ros = false;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    if (!ros || word == "--") {
      if (word != "--ros-args" && word != "--") own.push_back(word);
      ros = word == "--ros-args";
      continue;
    }
    if (i + 1 == arguments.size()) throw std::invalid_argument("something is missing behind " + word);
    const std::string& value = arguments[++i];
    if (word == "-r" || word == "--remap") {
      AddRemapping(value, own);
    } else if (word == "-p" || word == "--param") {
      AddParameterText(value, own);
    } else if (word == "--params-file") {
      AddFile(value, own);
    } else {
      throw std::invalid_argument("'" + word + "' has no meaning here. Known are -r, -p and --params-file.");
    }
  }
  return own;
}

}  // namespace orva::ros2
