#include "television.h"

#include "key_journal.h"
#include "text.h"

// Data from a broadcast or a file is not always text.
void Television::Show(const std::string &item, const std::string &text, const Details &details) {
  Details printable = details;
  for (std::string &entry : printable.entries) {
    entry = Printable(entry);
  }
  console_.Show(item, Printable(text), printable);
  screen_.Show(item, Printable(text), printable);
  Describe(item);
}

void Television::Hide(const std::string &item) {
  console_.Hide(item);
  screen_.Hide(item);
  Describe(item);
}

void Television::Refresh() {
  console_.Refresh();
  screen_.Refresh();
}

void Television::ShowKey(const KeyJourney &journey) {
  console_.ShowKey(journey);
  screen_.ShowKey(journey);
  if (describe_) {
    console_.PrintCanvas("key", screen_.Keys().Row(0));
  }
}

void Television::Describe(const std::string &item) {
  const std::string shown = describe_ ? screen_.Shown(item) : "";
  if (!shown.empty()) {
    console_.PrintCanvas(item, Squeezed(Printable(shown)));
  }
}
