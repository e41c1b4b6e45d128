// os.h: what systems do each in a way of their own. Includes nothing of morp's.
#pragma once

// Takes the characters of the locale that the environment names; where it can't be had, and `utf8`
// says that it asks for UTF-8, those of "C.UTF-8". Else they stay those of "C".
void os_take_locale(bool utf8);
