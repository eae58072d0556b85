// Images as JSON, there and back, and the lists that the commands print as JSON.
#ifndef TARN_CFG_JSON_H
#define TARN_CFG_JSON_H

#include "diff.h"
#include "image.h"

namespace tarn_cfg {

// A document from which file_from_json makes the very same file, byte for byte. The file's image has to be sound.
std::string file_to_json(View file, const Survey &found);

// The file that a document stands for. Ends the program where it is none; `name` is for the message.
Bytes file_from_json(const std::string &name, const std::string &text);

std::string survey_json(const std::string &path, size_t file_size, const Survey &found);
std::string findings_json(const std::string &path, size_t file_size, const Survey &found);
std::string differences_json(const std::vector<Difference> &differences);

}  // namespace tarn_cfg

#endif
