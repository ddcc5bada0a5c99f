// The model in a test bench: imports of libcmodel_dpi, a class around them, and a scoreboard.
//
// Calls of the library take a handle first, two-state scalars, strings, and lines as open arrays of int with
// their length. A call that fails returns a negative number and is counted; nothing ends the simulation.
package ee_dpi_pkg;

  // A model of pipeline "pre_ee" or "classic".
  import "DPI-C" function chandle cmodel_dpi_new(input string pipeline);
  import "DPI-C" function void cmodel_dpi_free(input chandle handle);
  import "DPI-C" function string cmodel_dpi_version(input chandle handle);

  // Calls that failed since the last clear, and the text of the first of them.
  import "DPI-C" function int cmodel_dpi_errors(input chandle handle);
  import "DPI-C" function string cmodel_dpi_error(input chandle handle);
  import "DPI-C" function void cmodel_dpi_clear_errors(input chandle handle);
  // Counts a failure of the bench's own.
  import "DPI-C" function void cmodel_dpi_fail(input chandle handle, input string text);

  // Registers by key; they take effect with the next frame. A register that does not exist reads as 0.
  import "DPI-C" function int cmodel_dpi_set(input chandle handle, input string key, input int value);
  import "DPI-C" function int cmodel_dpi_get(input chandle handle, input string key);
  import "DPI-C" function int cmodel_dpi_reset(input chandle handle);
  // Section [eeINSTANCE] of an INI file ("NULL": [ee]). Returns how many findings there are; "" beyond them.
  import "DPI-C" function int cmodel_dpi_load_ini(input chandle handle, input string path, input string instance_name);
  import "DPI-C" function string cmodel_dpi_finding(input chandle handle, input int index);

  // The stages in the order of the pipeline; "" beyond the last.
  import "DPI-C" function string cmodel_dpi_stage_name(input chandle handle, input int index);
  // Whether frames begun from now on keep a stage's lines until they are popped ("output": at first, they do).
  import "DPI-C" function int cmodel_dpi_keep(input chandle handle, input string stage, input int keep);
  // Rows that the output lags behind luma.
  import "DPI-C" function int cmodel_dpi_look_ahead(input chandle handle);

  // Begins a frame with the registers as they are; returns its number. yfusion_depth 0: no fused luma comes.
  import "DPI-C" function int cmodel_dpi_begin(input chandle handle, input int width, input int height,
                                               input int y_depth, input int yfusion_depth, input int has_ynr,
                                               input int has_mmap, input int has_colours);
  import "DPI-C" function int cmodel_dpi_drop(input chandle handle, input int frame);
  // The next line of an input: `count` samples from the lowest index on.
  import "DPI-C" function int cmodel_dpi_push(input chandle handle, input string plane, input int samples[],
                                              input int count);
  // Lines of a stage that can be popped.
  import "DPI-C" function int cmodel_dpi_ready(input chandle handle, input int frame, input string stage);
  // The next line of a stage; returns its row. Samples beyond `count`, and after a failure all, are undefined.
  import "DPI-C" function int cmodel_dpi_pop(input chandle handle, input int frame, input string stage,
                                             output int samples[], input int count);

  // The same by way of a line in the handle, for arrays that a simulator does not pass.
  import "DPI-C" function int cmodel_dpi_put_sample(input chandle handle, input int x, input int value);
  import "DPI-C" function int cmodel_dpi_get_sample(input chandle handle, input int x);
  import "DPI-C" function int cmodel_dpi_push_line(input chandle handle, input string plane, input int count);
  import "DPI-C" function int cmodel_dpi_pop_line(input chandle handle, input int frame, input string stage,
                                                  input int count);

  typedef int ee_line_t[];
  // A line of the hardware's: unknown bits stay unknown.
  typedef integer ee_hw_line_t[];

  // A model. Lines are dynamic arrays, one element a pixel.
  class ee_model;
    chandle handle;
    int width_of[int];   // of the frames that were begun and not dropped
    int height_of[int];

    function new(string pipeline = "pre_ee");
      handle = cmodel_dpi_new(pipeline);
    endfunction

    // The model is gone; do not use it again.
    function void close();
      cmodel_dpi_free(handle);
      handle = null;
    endfunction

    function string version();
      return cmodel_dpi_version(handle);
    endfunction

    function int errors();
      return cmodel_dpi_errors(handle);
    endfunction

    function string error();
      return cmodel_dpi_error(handle);
    endfunction

    function void clear_errors();
      cmodel_dpi_clear_errors(handle);
    endfunction

    function void fail(string text);
      cmodel_dpi_fail(handle, text);
    endfunction

    function int set(string key, int value);
      return cmodel_dpi_set(handle, key, value);
    endfunction

    function int get(string key);
      return cmodel_dpi_get(handle, key);
    endfunction

    function int reset();
      return cmodel_dpi_reset(handle);
    endfunction

    // Prints what the file has that it should not.
    function int load_ini(string path, string instance_name = "NULL");
      int findings;
      findings = cmodel_dpi_load_ini(handle, path, instance_name);
      for (int i = 0; i < findings; i++) $display("%s:%s", path, cmodel_dpi_finding(handle, i));
      return findings;
    endfunction

    function int keep(string stage, bit on = 1);
      return cmodel_dpi_keep(handle, stage, {31'b0, on});
    endfunction

    function int look_ahead();
      return cmodel_dpi_look_ahead(handle);
    endfunction

    function int begin_frame(int width, int height, int y_depth = 8, int yfusion_depth = 0, bit has_ynr = 0,
                             bit has_mmap = 0, bit has_colours = 0);
      int frame;
      frame = cmodel_dpi_begin(handle, width, height, y_depth, yfusion_depth, {31'b0, has_ynr},
                               {31'b0, has_mmap}, {31'b0, has_colours});
      if (frame > 0) begin
        width_of[frame] = width;
        height_of[frame] = height;
      end
      return frame;
    endfunction

    function int drop(int frame);
      width_of.delete(frame);
      height_of.delete(frame);
      return cmodel_dpi_drop(handle, frame);
    endfunction

    function int push(string plane, ee_line_t samples);
      for (int x = 0; x < samples.size(); x++) void'(cmodel_dpi_put_sample(handle, x, samples[x]));
      return cmodel_dpi_push_line(handle, plane, samples.size());
    endfunction

    function int ready(int frame, string stage);
      return cmodel_dpi_ready(handle, frame, stage);
    endfunction

    function int pop(int frame, string stage, output ee_line_t samples);
      int row;
      samples = new[width_of.exists(frame) != 0 ? width_of[frame] : 0];
      row = cmodel_dpi_pop_line(handle, frame, stage, samples.size());
      for (int x = 0; row >= 0 && x < samples.size(); x++) samples[x] = cmodel_dpi_get_sample(handle, x);
      return row;
    endfunction
  endclass

  // A line of the hardware's that waits for the model's.
  class ee_waiting_line;
    int frame;
    int row;
    bit has_samples;  // 0: it came with a wrong size; the model's line is skipped
    ee_hw_line_t samples;
  endclass

  // What is known of a stage.
  class ee_stage_results;
    string name;
    int lines;        // that were compared
    int differences;  // samples
    string first;     // difference, in words
    int next_row[int];  // by frame
    ee_waiting_line waiting[$];
  endclass

  // Compares lines of the hardware with the model's, as soon as both are there, in whichever order they come.
  class ee_scoreboard;
    ee_model model;
    int stop_after;   // differences; then nothing more is compared. 0: never
    int differences;
    bit stopped;
    ee_stage_results stages[$];

    // The frames of the model keep what is watched, and no longer the output that nobody pops.
    function new(ee_model compared_with, int stop_after_differences = 10);
      model = compared_with;
      stop_after = stop_after_differences;
      void'(model.keep("output", 0));
    endfunction

    // Frames begun from now on have a stage (or "output") compared.
    function void watch(string stage);
      ee_stage_results s;
      if (model.keep(stage) == 0) begin
        s = new;
        s.name = stage;
        foreach (model.height_of[frame]) s.next_row[frame] = model.height_of[frame];  // begun without it
        stages.push_back(s);
      end
    endfunction

    // The hardware's line `row` of a stage.
    function void take(int frame, string stage, int row, ee_hw_line_t samples);
      ee_waiting_line line;
      ee_stage_results s;
      string what;
      if (stopped) return;
      what = $sformatf("%s, frame %0d, row %0d of the hardware", stage, frame, row);
      foreach (stages[i]) if (stages[i].name == stage) s = stages[i];
      if (s == null) begin
        model.fail({what, ": the stage is not watched"});
        return;
      end
      if (model.height_of.exists(frame) == 0) begin
        model.fail({what, ": there is no such frame"});
        return;
      end
      if (s.next_row.exists(frame) == 0) s.next_row[frame] = 0;
      if (row < s.next_row[frame] || row >= model.height_of[frame]) begin
        model.fail({what, ": there is no such row, or it came before"});
        return;
      end
      foreach (s.waiting[i]) begin
        if (s.waiting[i].frame == frame && s.waiting[i].row == row) begin
          model.fail({what, ": it came before"});
          return;
        end
      end
      line = new;
      line.frame = frame;
      line.row = row;
      line.has_samples = samples.size() == model.width_of[frame];
      line.samples = samples;
      if (!line.has_samples) begin
        model.fail($sformatf("%s: %0d samples, not %0d", what, samples.size(), model.width_of[frame]));
      end
      s.waiting.push_back(line);
      check();
    endfunction

    // Compares what has become ready; take() and report() do so, too.
    function void check();
      foreach (stages[i]) while (!stopped && check_one(stages[i])) ;
    endfunction

    // Whether a line that waited is done with.
    local function bit check_one(ee_stage_results s);
      ee_waiting_line line;
      for (int i = 0; i < s.waiting.size(); i++) begin
        line = s.waiting[i];
        if (model.height_of.exists(line.frame) == 0) begin  // it was dropped
          s.waiting.delete(i);
          return 1;
        end
        if (line.row == s.next_row[line.frame] && model.ready(line.frame, s.name) > 0) begin
          s.waiting.delete(i);
          s.next_row[line.frame]++;
          if (cmodel_dpi_pop_line(model.handle, line.frame, s.name, model.width_of[line.frame]) >= 0 &&
              line.has_samples) begin
            compare(s, line);
          end
          return 1;
        end
      end
      return 0;
    endfunction

    local function void compare(ee_stage_results s, ee_waiting_line line);
      int expected;
      string where;
      s.lines++;
      for (int x = 0; x < line.samples.size() && !stopped; x++) begin
        expected = cmodel_dpi_get_sample(model.handle, x);
        if (line.samples[x] !== expected) begin
          where = $sformatf("x %0d, y %0d: expected %0d, actual %0d", x, line.row, expected, line.samples[x]);
          if (differences == 0) begin
            $display("first difference: stage %s, %s", s.name, where);
            $display("    in frame %0d", line.frame);
          end else begin
            $display("difference: stage %s, %s, in frame %0d", s.name, where, line.frame);
          end
          if (s.differences == 0) s.first = $sformatf("frame %0d, %s", line.frame, where);
          s.differences++;
          differences++;
          stopped = differences == stop_after;
        end
      end
    endfunction

    // Lines of the model's frames that were not compared.
    function int missing(ee_stage_results s);
      int lines;
      lines = 0;
      foreach (model.height_of[frame]) begin
        lines += model.height_of[frame];
        if (s.next_row.exists(frame) != 0) lines -= s.next_row[frame];
      end
      return lines;
    endfunction

    // Prints what came of each stage. 1 if every line of every frame and watched stage was compared, and
    // none differs, and no call failed.
    function bit report();
      bit passed;
      check();
      passed = differences == 0 && model.errors() == 0 && stages.size() > 0;
      $display("scoreboard: %0d differences, %0d failed calls", differences, model.errors());
      if (stopped) $display("    stopped at the last of these");
      if (model.errors() != 0) $display("    first failure: %s", model.error());
      foreach (stages[i]) begin
        $display("    %s: %0d lines compared, %0d missing, %0d differences", stages[i].name, stages[i].lines,
                 missing(stages[i]), stages[i].differences);
        if (stages[i].differences != 0) $display("        first: %s", stages[i].first);
        passed = passed && stages[i].lines > 0 && missing(stages[i]) == 0;
      end
      return passed;
    endfunction
  endclass

endpackage
