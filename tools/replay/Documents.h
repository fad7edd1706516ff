// Saved facade documents on disk: where each user's document lives, reading
// one into a facade, and writing files atomically.
#ifndef NUVIK_TOOLS_REPLAY_DOCUMENTS_H_
#define NUVIK_TOOLS_REPLAY_DOCUMENTS_H_

#include <string>

#include <nuvik/Nuvik.h>

namespace NuvikReplay {

// The document of `user` under `target`: `target` itself for a log of one
// user, else `target`/<user>.json with bytes outside [A-Za-z0-9._-] written
// as %XX.
std::string DocumentPath(const std::string& target, const std::string& user, bool onePerUser);

// Reads the document at `path` into `nuvik`. Throws InputError when the file
// cannot be read or the facade rejects the document.
void LoadDocument(NuvikPrediction::Nuvik& nuvik, const std::string& path);

std::string SerializeDocument(const NuvikPrediction::Nuvik& nuvik);

// Whether a facade accepts `document`. The library writes documents that it
// rejects when a predictor has learned too little to fill its tables.
bool IsLoadable(const std::string& document);

// Checks before a long replay that documents can be saved at `target`,
// creating the directory when there is one per user. Throws InputError.
void PrepareSaveTarget(const std::string& target, bool onePerUser);

// Checks before a long replay that a file can be written at `path`: it is
// no directory and its directory is writable. Throws InputError.
void PrepareFileTarget(const std::string& path);

// Writes a temporary file beside `path`, then renames it over `path`, so that
// `path` holds either its old content or all of the new. Throws InputError.
void WriteFileAtomically(const std::string& path, const std::string& content);

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_DOCUMENTS_H_
