#include "config_keys.h"

// Published byte for byte: begins and ends with a line feed.
const char* configSchemaText() {
  return R"json(
{
  "$schema": "http://json-schema.org/draft-07/schema#",
  "title": "CSRTTrackingAlgo configuration",
  "type": "object",
  "additionalProperties": false,
  "properties": {
    "roi": {
      "type": "object",
      "additionalProperties": false,
      "properties": {
        "enable":            { "type": "boolean", "default": true },
        "min_size":          { "type": "integer", "minimum": 32, "maximum": 8192, "default": 64 },
        "max_size":          { "type": "integer", "minimum": 32, "maximum": 8192, "default": 1920 },
        "margin_factor":     { "type": "number",  "minimum": 0.0, "maximum": 8.0, "default": 3.0 },
        "speed_gain":        { "type": "number",  "minimum": 0.0, "maximum": 10.0, "default": 2.0 },
        "conf_gain":         { "type": "number",  "minimum": 0.0, "maximum": 5.0, "default": 0.6 },
        "hysteresis_ratio":  { "type": "number",  "minimum": 0.0, "maximum": 0.5, "default": 0.1 },
        "keep_zone_ratio":   { "type": "number",  "minimum": 0.0, "maximum": 1.0, "default": 0.40 },
        "round_to":          { "type": "integer", "minimum": 1, "maximum": 128, "default": 2 },
        "snap_square":       { "type": "boolean", "default": true },
        "size_snap_up":      { "type": "boolean", "default": true },
        "min_delta_x":       { "type": "integer", "minimum": 0, "default": 4 },
        "min_delta_y":       { "type": "integer", "minimum": 0, "default": 4 },
        "min_delta_both":    { "type": "boolean", "default": false },
        "margin_slack_px":   { "type": "integer", "minimum": 0, "maximum": 128, "default": 8 },
        "freeze_input_size": { "type": "boolean", "default": true },
        "hard_resize_ratio": { "type": "number",  "minimum": 0.0, "maximum": 1.0, "default": 0.35 }
      }
    },
    "input": {
      "type": "object",
      "additionalProperties": false,
      "properties": {
        "work_width":  { "type": "integer", "minimum": 32, "maximum": 8192, "default": 640 },
        "work_height": { "type": "integer", "minimum": 32, "maximum": 8192, "default": 360 },
        "refine_init": { "type": "boolean", "default": true }
      }
    },
    "work_width":  { "type": "integer", "minimum": 32, "maximum": 8192, "default": 640 },
    "work_height": { "type": "integer", "minimum": 32, "maximum": 8192, "default": 360 },
    "csrt": {
      "type": "object",
      "additionalProperties": false,
      "properties": {
        "use_hog":            { "type": "boolean", "default": true },
        "use_color_names":    { "type": "boolean", "default": true },
        "use_rgb":            { "type": "boolean", "default": true },
        "use_segmentation":   { "type": "boolean", "default": true },
        "use_gray":           { "type": "boolean", "default": false },
        "template_size":      { "type": "integer", "minimum": 32, "maximum": 1024, "default": 120 },
        "number_of_scales":   { "type": "integer", "minimum": 1, "maximum": 32, "default": 10 },
        "scale_sigma_factor": { "type": "number",  "minimum": 0.01, "maximum": 2.0, "default": 0.20 },
        "scale_lr":           { "type": "number",  "minimum": 0.0, "maximum": 1.0, "default": 0.40 },
        "padding":            { "type": "number",  "minimum": 0.0, "maximum": 8.0, "default": 3.0 },
        "psr_threshold":      { "type": "number",  "minimum": 0.0, "maximum": 1.0, "default": 0.10 },
        "background_ratio":   { "type": "integer", "minimum": 1, "maximum": 16, "default": 2 },
        "admm_iterations":    { "type": "integer", "minimum": 1, "maximum": 50, "default": 5 },
        "filter_lr":          { "type": "number",  "minimum": 0.0, "maximum": 1.0, "default": 0.05 },
        "weights_lr":         { "type": "number",  "minimum": 0.0, "maximum": 1.0, "default": 0.05 },
        "window_function":    { "type": "string", "default": "hann" }
      }
    },
    "stability": {
      "type": "object",
      "additionalProperties": false,
      "properties": {
        "max_motion":      { "type": "number", "minimum": 1.0, "default": 100.0 },
        "min_scale_ratio": { "type": "number", "minimum": 0.01, "default": 0.3 },
        "max_scale_ratio": { "type": "number", "minimum": 0.1, "default": 2.5 }
      }
    },
    "redetect": {
      "type": "object",
      "additionalProperties": false,
      "properties": {
        "frames_lost_before_reset": { "type": "integer", "minimum": 1, "default": 12 },
        "re_detect_threshold":      { "type": "number",  "minimum": 0.0, "maximum": 1.0, "default": 0.8 },
        "max_redetect_attempts":    { "type": "integer", "minimum": 1, "default": 10 },
        "coarse_factor":            { "type": "number",  "minimum": 0.05, "maximum": 1.0, "default": 0.25 },
        "fine_roi_size":            { "type": "integer", "minimum": 32, "maximum": 2048, "default": 200 },
        "scale_list":               { "type": "array", "items": { "type": "number" }, "default": [0.9, 1.0, 1.1] },
        "dynamic_patch_stability":  { "type": "number",  "minimum": 0.0, "maximum": 1.0, "default": 0.8 },
        "oscillation_max":          { "type": "integer", "minimum": 1, "maximum": 10, "default": 3 },
        "oscillation_window":       { "type": "integer", "minimum": 1, "maximum": 20, "default": 5 }
      }
    },
    "predict": {
      "type": "object",
      "additionalProperties": false,
      "properties": {
        "damping":            { "type": "number", "minimum": 0.0, "maximum": 1.0, "default": 0.90 },
        "bbox_smooth_enable": { "type": "boolean", "default": false },
        "bbox_smooth_alpha":  { "type": "number", "minimum": 0.0, "maximum": 1.0, "default": 0.5 }
      }
    },
    "preposition": {
      "type": "object",
      "additionalProperties": false,
      "properties": {
        "enabled":                     { "type": "boolean", "default": false },
        "direct_init_center_tol_norm": { "type": "number",  "minimum": 0.0, "maximum": 0.5, "default": 0.10 },
        "alignment_tol_norm":          { "type": "number",  "minimum": 0.001, "maximum": 0.25, "default": 0.02 },
        "alignment_hold_frames":       { "type": "integer", "minimum": 1, "maximum": 10, "default": 2 },
        "match_min_score":             { "type": "number",  "minimum": 0.0, "maximum": 1.0, "default": 0.15 }
      }
    },
    "misc": {
      "type": "object",
      "additionalProperties": false,
      "properties": {
        "debug": { "type": "boolean", "default": false }
      }
    }
  }
}
)json";
}
