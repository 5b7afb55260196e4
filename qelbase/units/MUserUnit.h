#pragma once
// The unit in which the user sees lengths, areas and volumes.

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "qelbase/export.h"

// Who is told when the shared unit changes. An object made by the default constructor listens to
// MUserUnit::GetInstance() for its whole life; a copy does not listen, assignment changes nothing.
//
// A class whose objects come or go while another thread sets the unit takes the constructor with
// NotYet, calls AddUserUnitListener last in its own constructor and RemoveUserUnitListener first in
// its own destructor, so that it is never told while it is half an object.
class QELBASE_API IUserUnitDependent {
 public:
  IUserUnitDependent();
  IUserUnitDependent(const IUserUnitDependent&) {}
  IUserUnitDependent& operator=(const IUserUnitDependent&) { return *this; }
  virtual ~IUserUnitDependent();  // removes the object from the shared unit's listeners

  // Called on the thread that sets the unit, when the new unit is in force. May add and remove
  // listeners, itself among them, and may set the unit.
  virtual void OnUserUnitChanged() = 0;

 protected:
  struct NotYet {};
  explicit IUserUnitDependent(NotYet) {}
};

// Conversions between millimetres, STL units (see MUnit) and the user's unit, the text of lengths,
// and a list of listeners. The process has one shared object; others can be made, but only the
// shared one sets the conversion factor of QelSDK::Common::MInternalUnits.
//
// Threads. Everything is safe on any thread, but for the texts that GetName and GetAbbreviation
// point to: they live until the unit is set again.
class QELBASE_API MUserUnit {
 public:
  enum UNIT_TYPE : std::int32_t { UNIT_MILLIMETRE = 0, UNIT_INCH = 1 };

  static MUserUnit& GetInstance() { return mg_user_unit; }

  explicit MUserUnit(UNIT_TYPE unit);
  ~MUserUnit();
  MUserUnit(const MUserUnit&) = delete;
  MUserUnit& operator=(const MUserUnit&) = delete;

  // Takes the unit, loads its texts through the string wrapper (without one they become empty), and
  // tells the listeners if the unit differs from the one before. A value that is no unit is what
  // GetUnit gives from then on, and changes nothing else.
  void SetUnit(UNIT_TYPE unit);
  UNIT_TYPE GetUnit() const { return m_unit; }
  const wchar_t* GetName() const;          // "millimetre", or empty; never null
  const wchar_t* GetAbbreviation() const;  // "mm", or empty; never null

  // The listeners are not owned. Adding twice, or removing what does not listen, does nothing. At a
  // change those are told, in the order of their addresses, who listened when it began and still
  // listen when their turn comes. A listener is not called any more once RemoveUserUnitListener has
  // returned: it waits for a call that runs on another thread.
  void AddUserUnitListener(IUserUnitDependent* listener);
  void RemoveUserUnitListener(IUserUnitDependent* listener);

  // Writes the length in the user's unit, and with `with_unit` a blank and the abbreviation.
  // `size` counts characters, the terminator among them; what does not fit leaves an empty text.
  void PrintMmInUI(wchar_t* buffer, std::size_t size, double mm, bool with_unit) const;
  void PrintStlUnitsInUI(wchar_t* buffer, std::size_t size, std::int32_t stl, bool with_unit) const;

  double ConvertFromMmToUI(double mm) const;
  double ConvertFromUIToMm(double value) const;
  double ConvertFromMmSquareToUI(double mm2) const;
  double ConvertFromUIToMmSquare(double value) const;
  double ConvertFromMmCubedToUI(double mm3) const;
  double ConvertFromUIToMmCubed(double value) const;
  double ConvertFromStlUnitsToUI(std::int32_t stl) const;
  std::int32_t ConvertFromUIToStlUnits(double value) const;  // as MUnit::ConvertFromMmToStlUnits
  double ConvertFromStlUnitsSquareToUI(double stl2) const;
  double ConvertFromUIToStlUnitsSquare(double value) const;
  double ConvertFromStlUnitsCubedToUI(double stl3) const;
  double ConvertFromUIToStlUnitsCubed(double value) const;

  static MUserUnit mg_user_unit;

 private:
  class Call;
  struct Running {
    IUserUnitDependent* listener;
    std::thread::id thread;
  };

  void _OnUserUnitChanged();
  double _ConvertFromStlUnitsToUI(double stl) const;
  double _ConvertFromUIToStlUnits(double value) const;
  bool IsCalledElsewhere(const IUserUnitDependent* listener) const;

  std::atomic<UNIT_TYPE> m_unit;
  std::wstring m_name;
  std::wstring m_abbreviation;
  std::set<IUserUnitDependent*> m_listeners;
  const wchar_t* m_format;
  std::atomic<double> m_factor;  // millimetres per unit of the user

  mutable std::mutex m_mutex;  // guards texts, format and listeners; not held while one is called
  std::list<Running> m_calls;
  std::condition_variable m_call_ended;
};
