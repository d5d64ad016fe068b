// Diary: what happened in a test, in order, over all threads.
#pragma once

#include <mutex>
#include <string>

#include "Texts.h"

class Diary {
 public:
  void Note(const std::string& strText) {
    const std::lock_guard<std::mutex> rLock(rMutex);
    astrNotes.push_back(strText);
  }
  Texts Notes() {
    const std::lock_guard<std::mutex> rLock(rMutex);
    return astrNotes;
  }
  int Count(const std::string& strText) {
    int iCount = 0;
    for (const std::string& strNote : Notes()) iCount += strNote == strText ? 1 : 0;
    return iCount;
  }

 private:
  std::mutex rMutex;
  Texts astrNotes;  // guarded by rMutex
};
