#pragma once

// The interface model of plug-ins: a table of functions behind a reserved word.

#include <CoreFoundation/CFPlugIn.h>

typedef SInt32 HRESULT;
typedef UInt32 ULONG;
typedef void* LPVOID;
typedef CFUUIDBytes REFIID;

#define SUCCEEDED(Status) ((HRESULT)(Status) >= 0)
#define FAILED(Status) ((HRESULT)(Status) < 0)
#define HRESULT_CODE(hr) ((hr)&0xFFFF)
#define SEVERITY_SUCCESS 0
#define SEVERITY_ERROR 1

#define S_OK ((HRESULT)0x00000000L)
#define S_FALSE ((HRESULT)0x00000001L)
#define E_UNEXPECTED ((HRESULT)0x8000FFFFL)
#define E_NOTIMPL ((HRESULT)0x80000001L)
#define E_OUTOFMEMORY ((HRESULT)0x80000002L)
#define E_INVALIDARG ((HRESULT)0x80000003L)
#define E_NOINTERFACE ((HRESULT)0x80000004L)
#define E_POINTER ((HRESULT)0x80000005L)
#define E_HANDLE ((HRESULT)0x80000006L)
#define E_ABORT ((HRESULT)0x80000007L)
#define E_FAIL ((HRESULT)0x80000008L)
#define E_ACCESSDENIED ((HRESULT)0x80000009L)

#define STDMETHODCALLTYPE

#define IUNKNOWN_C_GUTS                                                                   \
  void* _reserved;                                                                        \
  HRESULT(STDMETHODCALLTYPE* QueryInterface)(void* thisPointer, REFIID iid, LPVOID* ppv); \
  ULONG(STDMETHODCALLTYPE* AddRef)(void* thisPointer);                                    \
  ULONG(STDMETHODCALLTYPE* Release)(void* thisPointer)

typedef struct IUnknownVTbl {
  IUNKNOWN_C_GUTS;
} IUnknownVTbl;

// 00000000-0000-0000-C000-000000000046
#define IUnknownUUID                                                                               \
  CFUUIDGetConstantUUIDWithBytes(NULL, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xC0, 0x00, \
                                 0x00, 0x00, 0x00, 0x00, 0x00, 0x46)
