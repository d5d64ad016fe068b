// callcodes: values of the coded columns of a call row and of the recorder's own, once, under names.
// The web side reads and writes the same numbers, so none of them may change; docs/formats.md explains them to people.
// A row takes each as its decimal text. Bits stand alone or added up.
#pragma once

// Column "direction".
enum ECallDirection { DIRECTION_INCOMING = 0, DIRECTION_OUTGOING = 1, DIRECTION_INTERNAL = 2 };

// Column "encoding": what the file holds. A call that waits for a demand has no audio, and so none yet.
enum ECallEncoding {
  ENCODING_NO_AUDIO = 0,
  ENCODING_GSM = 551,
  ENCODING_ALAW = 554,
  ENCODING_ULAW = 555,
  ENCODING_MP3 = 801,
};

// Column "source": the kind of line.
enum ECallSource { SOURCE_OTHER = 0, SOURCE_ANALOG = 1, SOURCE_DST = 5, SOURCE_PRI = 6 };

// Column "flags", bits.
enum ECallFlag {
  FLAG_ENCRYPTED = 16,  // in the archive; the setting ALE
  FLAG_MISSED = 64,     // a call that nobody took; a row without audio
};

// Column "processingstate", bits.
enum ECallState { STATE_UNDECIDED = 128 };  // kept for now, a decision on storing is still to come

// Column "category".
enum ECallCategory { CATEGORY_LOUD = 1 };  // loud talking was heard

// Column "rectype" of the table recorders.
enum ERecorderType { RECORDER_OF_CARDS = 50 };
