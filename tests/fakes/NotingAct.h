// NotingAct: an action that notes in a diary what is done with it: "<name> thread", "main", "completed", "deleted".
#pragma once

#include <string>

#include "Diary.h"
#include "mainqueue.h"

class NotingAct : public ThreadAct {
 public:
  NotingAct(Diary& rDiaryToUse, const std::string& strItsName) : rDiary(rDiaryToUse), strName(strItsName) {}
  ~NotingAct() override { rDiary.Note(strName + " deleted"); }
  void performThread() override { rDiary.Note(strName + " thread"); }
  void performMain() override { rDiary.Note(strName + " main"); }
  void completed() override { rDiary.Note(strName + " completed"); }

 private:
  Diary& rDiary;
  std::string strName;
};
