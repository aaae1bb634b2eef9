#include <lumo/image.h>
#include <lumo/log/log.h>

#include <cstdio>
#include <string>

int main() {
  std::string seen;
  lumo::log::SetSink([&](unsigned, lumo::log::Severity, int, const std::string& text) { seen = text; });
  lumo::log::LogError(lumo::image::LogChannel, "%s", "ok");
  const std::string name = lumo::image::ToString(lumo::image::PixelFormatDescriptor{0x810203080820500ULL});
  std::printf("%s %s\n", name.c_str(), seen.c_str());
  return name == "A8R8G8B8" && seen == "ok" ? 0 : 1;
}
