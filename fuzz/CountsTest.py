"""The counts and features read from what libFuzzer writes."""
import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "scripts"))

from fuzz_counts import Counts, Search, features_in  # noqa: E402

LOADED = ["INFO: seed corpus: files: 8", "#8\tpulse  cov: 90 ft: 120 corp: 4/1Kb exec/s: 4",
          "#10\tINITED cov: 100 ft: 150 corp: 8/2Kb exec/s: 0 rss: 40Mb"]


class SearchCounts(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = pathlib.Path(folder.name, "counts", "Target.json")

    def counts_after(self, *lines):
        counts = Counts(self.path)
        search = Search(counts)
        for line in lines: search.line(line + "\n")
        search.end()
        return Counts(self.path)

    def test_inputs_that_are_known_are_not_counted(self):
        self.assertEqual(self.counts_after(*LOADED, "#60\tDONE   cov: 100 ft: 151").executions, 50)

    def test_an_edge_is_new_when_the_coverage_grows(self):
        counts = self.counts_after(*LOADED, "#30\tNEW    cov: 101 ft: 152 corp: 9/2Kb",
                                   "#40\tNEW    cov: 101 ft: 153 corp: 10/2Kb",
                                   "#45\tREDUCE cov: 101 ft: 153 corp: 10/2Kb",
                                   "#60\tDONE   cov: 101 ft: 153")
        self.assertEqual((counts.last_edge, counts.edges), (20, 101))
        self.assertIn("101 edges, the last new one 30 executions ago", counts.text())

    def test_a_later_search_goes_on_with_the_counts(self):
        self.counts_after(*LOADED, "#30\tNEW    cov: 101 ft: 152", "#60\tDONE   cov: 101 ft: 153")
        counts = self.counts_after("#20\tINITED cov: 101 ft: 153", "#70\tDONE   cov: 101 ft: 153")
        self.assertEqual((counts.executions, counts.last_edge), (100, 20))

    def test_a_search_that_is_interrupted_counts_what_it_executed(self):
        counts = self.counts_after(*LOADED, "#32\tpulse  cov: 100 ft: 150",
                                   "stat::number_of_executed_units: 57")
        self.assertEqual(counts.executions, 47)

    def test_a_search_that_does_not_begin_counts_nothing(self):
        self.assertEqual(self.counts_after("ERROR: no such file").executions, 0)


class MergedFeatures(unittest.TestCase):
    def test_each_input_that_was_executed_has_its_features(self):
        features = features_in(["3", "1", "seeds/one", "corpus/two", "corpus/three", "STARTED 0 4",
                                "FT 0 17 18", "COV 0 1", "STARTED 1 9", "STARTED 2 1", "FT 2"])
        self.assertEqual(features, {pathlib.Path("seeds/one"): {17, 18},
                                    pathlib.Path("corpus/three"): set()})


if __name__ == "__main__":
    unittest.main()
