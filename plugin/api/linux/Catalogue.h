// How the classes of this plug-in enter the host's registry.
#pragma once

#include "quill/IClass.h"

namespace tessel::dualos {

// One class of the catalogue. Names are looked up by clients verbatim, with their irregular order
// of words, so they are kept letter for letter.
struct CatalogueRow {
  const char* name;        // the class itself
  const char* push_alias;  // binds false; null for a class without aliases
  const char* pull_alias;  // binds true; null likewise
  // Enters the class under `name`, or returns the record that has the name already.
  quill::base::IClass* (*enter)(const char* name);
  // Attaches the class's tag; null for a class without one.
  void (*tag)(quill::base::IClass& record);
};

// Enters the class of a row with its metadata, tag and aliases. A second time nothing is entered
// anew; the taken names are logged and the metadata refreshed.
void Register(const CatalogueRow& row);

}  // namespace tessel::dualos
