/* The unwinder of the toolchain's C++ library, under names of its own. */
#define _Unwind_RaiseException OwnRaiseException
#define _Unwind_Resume OwnResume
#define _Unwind_ForcedUnwind OwnForcedUnwind
#define _Unwind_GetLanguageSpecificData OwnGetLanguageSpecificData
#define _Unwind_GetRegionStart OwnGetRegionStart
#define _Unwind_DeleteException OwnDeleteException
#define _Unwind_GetGR OwnGetGR
#define _Unwind_SetGR OwnSetGR
#define _Unwind_GetIP OwnGetIP
#define _Unwind_SetIP OwnSetIP
#include <UnwindLevel1.c>
