#include <deque>
#include <unordered_map>

#include "convert/builtin_conversions.h"
#include "lumo/image/converters.h"
#include "lumo/image/surface_data.h"
#include "lumo/log/log.h"

namespace lumo::image {

const std::shared_ptr<Converter> Converter::Null;

Converter::~Converter() = default;

// ---- ConverterSequence ----

void ConverterSequence::Append(std::shared_ptr<Converter> converter, const PixelFormatDescriptor& produces) {
  steps_.push_back({std::move(converter), produces});
}

std::shared_ptr<SurfaceData> ConverterSequence::Convert(const SurfaceData* source, const PixelFormatDescriptor&) {
  std::shared_ptr<SurfaceData> result;
  const SurfaceData* current = source;
  for (const Step& step : steps_) {
    // Assigning releases the previous intermediate once the step that read it is done.
    result = step.converter->Convert(current, step.produces);
    if (!result) return result;
    current = result.get();
  }
  return result;
}

// ---- ConverterManager ----

ConverterManager::ConverterManager() {
  detail::RegisterBuiltInConversions(
      [](void* context, PixelFormatDescriptor from, PixelFormatDescriptor to,
         const std::shared_ptr<Converter>& converter) {
        // Never replaces: the first registration of a pair stays.
        static_cast<ConverterManager*>(context)->converters_.emplace(FormatPair(from, to), converter);
      },
      this);
  // Built-in edges in ascending (source, target) order: this order decides
  // between chains of equal length.
  graph_ = std::make_unique<Graph>();
  for (const auto& entry : converters_) (*graph_)[entry.first.first].push_back(entry.first.second);
}

ConverterManager::ConverterManager(const ConverterManager& other)
    : converters_(other.converters_), graph_(std::make_unique<Graph>(*other.graph_)) {}

ConverterManager& ConverterManager::operator=(const ConverterManager& other) {
  if (this != &other) {
    converters_ = other.converters_;
    graph_ = std::make_unique<Graph>(*other.graph_);
  }
  return *this;
}

ConverterManager::~ConverterManager() = default;

ConverterManager* ConverterManager::Instance() {
  static ConverterManager manager;
  return &manager;
}

bool ConverterManager::RegisterConverter(const FormatPair& formats, std::shared_ptr<Converter> converter,
                                         bool replace) {
  const auto found = converters_.find(formats);
  if (found != converters_.end()) {
    if (!replace) return false;
    found->second = std::move(converter);
    return true;
  }
  converters_.emplace(formats, std::move(converter));
  (*graph_)[formats.first].push_back(formats.second);
  return true;
}

std::shared_ptr<Converter> ConverterManager::GetConverter(const PixelFormatDescriptor& from,
                                                          const PixelFormatDescriptor& to) const {
  return GetConverter(FormatPair(from, to));
}

std::shared_ptr<Converter> ConverterManager::GetConverter(const FormatPair& formats) const {
  if (const auto direct = converters_.find(formats); direct != converters_.end()) return direct->second;

  // Breadth-first search; decided when the target is discovered, so among
  // chains of equal length the first found in list order wins.
  const PixelFormatDescriptor start = formats.first;
  const PixelFormatDescriptor goal = formats.second;
  std::unordered_map<PixelFormatDescriptor, PixelFormatDescriptor> parent;  // discovered vertices
  std::deque<PixelFormatDescriptor> queue{start};
  bool found = false;
  while (!queue.empty() && !found) {
    const PixelFormatDescriptor current = queue.front();
    queue.pop_front();
    const auto edges = graph_->find(current);
    if (edges == graph_->end()) continue;
    for (const PixelFormatDescriptor next : edges->second) {
      // The start counts as undiscovered, so a cycle can lead back to it.
      if (parent.count(next) != 0) continue;
      parent.emplace(next, current);
      queue.push_back(next);
      if (next == goal) {
        found = true;
        break;
      }
    }
  }
  if (!found || start == goal) return Converter::Null;

  std::vector<FormatPair> path;
  for (PixelFormatDescriptor at = goal; at != start; at = parent.at(at)) path.emplace_back(parent.at(at), at);
  auto sequence = std::make_shared<ConverterSequence>();
  for (auto step = path.rbegin(); step != path.rend(); ++step) {
    const auto converter = converters_.find(*step);
    if (converter == converters_.end()) return Converter::Null;
    lumo::log::Log(LogChannel, -10, "Convert From %s To %s", ToString(step->first).c_str(),
                   ToString(step->second).c_str());
    sequence->Append(converter->second, step->second);
  }
  return sequence;
}

}  // namespace lumo::image
