// Every value that a host can tune, with the value in force until setConfig() changes it.
#pragma once

#include <string>
#include <vector>

/// One struct per JSON group; a member is named as its JSON key. Ranges are those setConfig() clamps to. Plain data:
/// the plug-in reads and writes its copy under `mutex_`. `misc.debug` is an atomic flag of the plug-in, not kept here.
struct CsrtConfig {
  /// What the plug-in takes in.
  struct Input {
    int work_width = 640;      ///< Working width, pixels; every start overwrites it with the frame's. [32, 8192]
    int work_height = 360;     ///< Working height, pixels; every start overwrites it with the frame's. [32, 8192]
    bool refine_init = false;  ///< Re-centre the initial box on the segment under its centre.
  } input;

  /// The processing window: what part of the frame the tracker sees.
  struct Roi {
    bool enable = true;               ///< Off: the processing window is the whole frame.
    int min_size = 128;               ///< Smallest window side, pixels. [32, 8192]
    int max_size = 0;                 ///< Largest window side, pixels; 0: only the frame bounds it. [0, 8192]
    double margin_factor = 2.0;       ///< Margin on each side, in box sides: 2.0 gives a window five boxes wide. [0, 8]
    double speed_gain = 2.0;          ///< Extra margin per pixel/frame of box speed, pixels. [0, 10]
    double conf_gain = 0.6;           ///< Extra margin at no confidence, in box diagonals (half a side each). [0, 5]
    double hysteresis_ratio = 0.15;   ///< Relative band inside which the window keeps its size. [0, 0.5]
    double keep_zone_ratio = 0.4;     ///< Accepted and stored; nothing reads it. [0, 1]
    int round_to = 2;                 ///< Window sides are multiples of this, pixels; 1: any. [1, 128]
    bool snap_square = true;          ///< Accepted and stored; nothing reads it.
    bool size_snap_up = true;         ///< Accepted and stored; nothing reads it.
    int min_delta_x = 12;             ///< Smallest change of width that is followed, pixels. [0, 4096]
    int min_delta_y = 12;             ///< Smallest change of height that is followed, pixels. [0, 4096]
    bool min_delta_both = false;      ///< A resize needs both sides to have changed that much.
    int margin_slack_px = 8;          ///< Accepted and stored; nothing reads it. [0, 128]
    bool freeze_input_size = true;    ///< Keep the tracker's input size between starts.
    double hard_resize_ratio = 0.35;  ///< Relative change from which a frozen size is given up. [0, 1]
  } roi;

  /// Handed to OpenCV's tracker under the same names.
  struct Csrt {
    bool use_hog = true;              ///< Channels of gradient directions.
    bool use_color_names = true;      ///< Channels of colour names; not of grey pictures.
    bool use_rgb = true;              ///< Channels of the colours themselves.
    bool use_segmentation = true;     ///< Learn under a mask of what looks like the target.
    bool use_gray = false;            ///< A channel of grey levels.
    int template_size = 200;          ///< Side of the filter's picture of the target, pixels. [32, 1024]
    int number_of_scales = 10;        ///< Sizes tried per frame. [1, 32]
    double scale_sigma_factor = 0.2;  ///< Width of the wanted response over sizes. [0.01, 2]
    double scale_lr = 0.4;            ///< Learning rate of the size filter. [0, 1]
    double padding = 3.0;             ///< Context around the box, in boxes; the window keeps half of it free. [0, 8]
    double psr_threshold = 0.1;       ///< Response below which a step fails. [0, 1]
    int background_ratio = 2;         ///< Background area of the colour model, in boxes. [1, 16]
    int admm_iterations = 5;          ///< Solver iterations of the filter. [1, 50]
    double filter_lr = 0.05;          ///< Learning rate of the filter. [0, 1]
    double weights_lr = 0.05;         ///< Learning rate of the channel weights. [0, 1]
    std::string window_function = "hann";  ///< "hann", "cheb" or "kaiser"; any text is stored.
  } csrt;

  /// What counts as a plausible step.
  struct Stability {
    double max_motion = 100.0;     ///< Movement in one frame that scores nothing, pixels. [1, 1e9]
    double min_scale_ratio = 0.3;  ///< Smallest area ratio to the box before. [0.01, 1e6]
    double max_scale_ratio = 2.5;  ///< Largest area ratio to the box before. [0.1, 1e6]
  } stability;

  /// Finding a lost target again.
  struct Redetect {
    int frames_lost_before_reset = 12;  ///< Lost frames between two searches of the whole frame. [1, 1000000]
    double re_detect_threshold = 0.8;   ///< Matching score to accept a find. [0, 1]
    int max_redetect_attempts = 10;     ///< Failed searches until the target is given up. [1, 1000000]
    double coarse_factor = 0.25;        ///< Shrink factor of the first search. [0.05, 1]
    int fine_roi_size = 200;            ///< Smallest side of the second search, pixels. [32, 2048]
    std::vector<double> scale_list{0.9, 1.0, 1.1};  ///< Sizes of the first patch tried; not clamped.
    double dynamic_patch_stability = 0.8;           ///< Stability from which the second patch is refreshed. [0, 1]
    int oscillation_max = 3;                        ///< Losses soon after a find until the target is given up. [1, 10]
    int oscillation_window = 5;                     ///< What "soon" means, frames. [1, 20]
  } redetect;

  /// Where a target is expected while it is not seen, and how the reported box is smoothed.
  struct Predict {
    double damping = 0.9;             ///< Speed kept from one lost frame to the next. [0, 1]
    bool bbox_smooth_enable = false;  ///< Smooth the reported box.
    double bbox_smooth_alpha = 0.5;   ///< Share of the new box: 0 holds still, 1 follows at once. [0, 1]
  } predict;

  /// Pointing a camera before the start.
  struct Preposition {
    bool enabled = false;                      ///< Point the camera first when the host asks for it.
    double direct_init_center_tol_norm = 0.1;  ///< Offset from the centre that starts at once, in frames. [0, 0.5]
    double alignment_tol_norm = 0.02;  ///< Offset from the centre that counts as aligned, in frames. [0.001, 0.25]
    int alignment_hold_frames = 2;     ///< Aligned frames in a row until tracking starts. [1, 10]
    double match_min_score = 0.15;     ///< Matching score to trust the first patch's place. [0, 1]
  } preposition;
};

using RoiConfig = CsrtConfig::Roi;
using StabilityConfig = CsrtConfig::Stability;
