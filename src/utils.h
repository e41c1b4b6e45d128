// utils.h: choice of the editing style.
#pragma once

// The style that Q_VXEDITOR, VISUAL or EDITOR names, the first that means something: kStyleGmacs,
// kStyleEmacs or kStyleVi; kStyleVi when none does.
int get_editor_type();
