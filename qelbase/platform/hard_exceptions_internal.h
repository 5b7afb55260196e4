#pragma once
// Hard faults of the processor as exceptions of the MException family. Users catch them as
// MException.

#include "qelbase/outside/components/MException.h"
#include "qelbase/outside/system/faults.h"

class MHardException : public MException {  // any hard fault
 public:
  using MException::MException;
  MHardException(const MHardException& other) = default;
  ~MHardException() override;
};

class MMException : public MHardException {
 public:
  using MHardException::MHardException;
  MMException(const MMException& other) = default;
  ~MMException() override;
};

class MMFltException : public MMException {  // floating point
 public:
  using MMException::MMException;
  MMFltException(const MMFltException& other) = default;
  ~MMFltException() override;
};

class MMIntException : public MMException {  // integers
 public:
  using MMException::MMException;
  MMIntException(const MMIntException& other) = default;
  ~MMIntException() override;
};

// Throws the exception of a code in the fault table; returns for any other.
void TranslateFault(unsigned int code, qel::sys::EXCEPTION_POINTERS* pointers);

// Sets the translator of the thread that makes it, and puts back the one before.
class MMExceptionTranslator {
 public:
  MMExceptionTranslator();
  virtual ~MMExceptionTranslator();
  MMExceptionTranslator(const MMExceptionTranslator&) = delete;
  MMExceptionTranslator& operator=(const MMExceptionTranslator&) = delete;

  static MMExceptionTranslator mg_instance;

 private:
  qel::sys::_se_translator_function m_previous;
};
