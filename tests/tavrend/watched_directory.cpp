#include "tavrend/watched_directory.h"

#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>

#include "support/files.h"

Contents contents_of(const std::string& directory) {
  Contents contents;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    if (!entry.is_regular_file()) continue;
    contents[entry.path().lexically_relative(directory)] = content_of(std::ifstream(entry.path(), std::ios::binary));
  }
  return contents;
}

void set_contents(const std::string& directory, const Contents& contents) {
  for (const auto& entry : std::filesystem::directory_iterator(directory)) std::filesystem::remove_all(entry.path());
  for (const auto& [name, content] : contents) {
    const std::filesystem::path path = std::filesystem::path(directory) / name;
    std::filesystem::create_directories(path.parent_path());
    write_file(path, content);
  }
}

WatchedDirectory::WatchedDirectory(const std::string& path) : directory(path) {
  look();
  for (const auto& [name, file] : files) file->synced = file->content;
  on_disk = files;
}

bool WatchedDirectory::see(pid_t process, const SystemCall& call) {
  bool is_news = look();
  if (call.result == 0 && (call.number == SYS_fsync || call.number == SYS_fdatasync)) {
    std::error_code none;
    const auto path = std::filesystem::read_symlink(
        "/proc/" + std::to_string(process) + "/fd/" + std::to_string(call.arguments[0]), none);
    is_news = see_sync(path) || is_news;
  }
  return is_news;
}

bool WatchedDirectory::look() {
  Files found;
  bool is_news = false;
  for (const auto& [name, content] : contents_of(directory)) {
    struct stat status {};
    if (stat((directory + "/" + name).c_str(), &status) != 0) continue;
    const auto before = files.find(name);
    const bool is_it = before != files.end() && before->second->inode == status.st_ino;
    found[name] = is_it ? before->second : std::make_shared<File>(File{status.st_ino, "", ""});
    is_news = is_news || !is_it || found[name]->content != content;
    found[name]->content = content;
  }
  is_news = is_news || found.size() != files.size();
  files = found;
  return is_news;
}

bool WatchedDirectory::see_sync(const std::string& path) {
  if (path == directory) {
    const bool is_news = on_disk != files;
    on_disk = files;
    return is_news;
  }
  for (const auto& [name, file] : files) {
    if (path != directory + "/" + name) continue;
    const bool is_news = file->synced != file->content;
    file->synced = file->content;
    return is_news;
  }
  return false;
}

Contents WatchedDirectory::now() const {
  Contents contents;
  for (const auto& [name, file] : files) contents[name] = file->content;
  return contents;
}

Contents WatchedDirectory::synced() const {
  Contents contents;
  for (const auto& [name, file] : on_disk) contents[name] = file->synced;
  return contents;
}

/* A sector that has a place and was never written there is of zeros. */
std::string WatchedDirectory::mixed(const File& file, std::minstd_rand& random) {
  constexpr size_t sector = 512;
  const auto any_of_both = [&]() -> const std::string& { return (random() & 1) != 0 ? file.content : file.synced; };
  std::string mixed(any_of_both().size(), '\0');
  for (size_t at = 0; at < mixed.size(); at += sector) {
    const std::string& source = any_of_both();
    if (at >= source.size()) continue;
    const size_t length = std::min({sector, mixed.size() - at, source.size() - at});
    mixed.replace(at, length, source, at, length);
  }
  return mixed;
}

Contents WatchedDirectory::mixed(std::minstd_rand& random) const {
  Contents contents;
  std::set<std::string> names;
  for (const auto& [name, file] : files) names.insert(name);
  for (const auto& [name, file] : on_disk) names.insert(name);
  for (const std::string& name : names) {
    const Files& source = (random() & 1) != 0 ? files : on_disk;
    const auto file = source.find(name);
    if (file != source.end()) contents[name] = mixed(*file->second, random);
  }
  return contents;
}
