// simcards_pacing: the one thread that makes audio flow in real time.
// Threads: Start and Stop from any thread that does not hold the library's lock.
#pragma once

namespace simcards {

void StartPacingThread(double dSpeed);  // restarts with the new speed when it runs already
void StopPacingThread();                // returns when the thread has ended
// Whether the cards' clock waits where the machine is too busy to make their audio in time, as it does unless told not
// to: real cards do not, and overrun their rings.
void LetPacingSlip(bool fMay);
double PacingSpeed();  // 0 when no thread runs
// Seconds of audio that were left out because the machine was too busy to make them in time.
double PacingSlipped();
// Likewise of audio that was made all the same, later than a small ring forgives.
double PacingLate();

}  // namespace simcards
