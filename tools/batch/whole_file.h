// Files that take their name when they are whole.
#ifndef CMODEL_BATCH_WHOLE_FILE_H
#define CMODEL_BATCH_WHOLE_FILE_H

#include <cstdio>
#include <string>

namespace eetool {

// What a file is called while it is written: PATH.part, and PATH itself if that is a device or a pipe.
std::string name_until_whole(const std::string& path);

// Written as PATH.part, which takes the place of PATH with finish() and goes without it.
class WholeFile {
  public:
    explicit WholeFile(const std::string& path);
    ~WholeFile();
    WholeFile(const WholeFile&) = delete;
    WholeFile& operator=(const WholeFile&) = delete;

    FILE* stream() const { return file_; }
    void write(const void* bytes, size_t size);
    void write(const std::string& text) { write(text.data(), text.size()); }
    // Throws Cannot, as write() and the constructor do: also for what was written to the stream and did not
    // get into the file.
    void finish();

  private:
    [[noreturn]] void fail() const;

    const std::string path_, part_;
    FILE* file_;
};

}  // namespace eetool

#endif
